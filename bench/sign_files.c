/* Signs many files at once, as the signing tool would: path + ".sig" holds the RSASSA-PKCS1-v1_5
 * signature of the SHA-256 of the file.
 *
 *   sign_files <private key PEM>     reads the paths to sign from standard input, one a line */
#include <stdio.h>
#include <string.h>

#include <openssl/evp.h>
#include <openssl/pem.h>

static unsigned char block[256 * 1024];

static int sign_file(EVP_PKEY *key, const char *path) {
    FILE *in = fopen(path, "rb");
    if (in == NULL) return 0;
    EVP_MD_CTX *ctx = EVP_MD_CTX_new();
    int ok = ctx != NULL && EVP_DigestSignInit(ctx, NULL, EVP_sha256(), NULL, key) == 1;
    size_t n;
    while (ok && (n = fread(block, 1, sizeof block, in)) > 0) ok = EVP_DigestSignUpdate(ctx, block, n) == 1;
    ok = ok && !ferror(in);
    fclose(in);
    unsigned char sig[1024];
    size_t len = sizeof sig;
    ok = ok && EVP_DigestSignFinal(ctx, sig, &len) == 1;
    EVP_MD_CTX_free(ctx);
    char sig_path[4096 + 8];
    snprintf(sig_path, sizeof sig_path, "%s.sig", path);
    FILE *out = ok ? fopen(sig_path, "wb") : NULL;
    ok = out != NULL && fwrite(sig, 1, len, out) == len;
    if (out != NULL && fclose(out) != 0) ok = 0;
    return ok;
}

int main(int argc, char **argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: sign_files <private key PEM> < paths\n");
        return 2;
    }
    FILE *f = fopen(argv[1], "r");
    EVP_PKEY *key = f ? PEM_read_PrivateKey(f, NULL, NULL, NULL) : NULL;
    if (f) fclose(f);
    if (key == NULL) {
        fprintf(stderr, "cannot read %s\n", argv[1]);
        return 2;
    }
    char line[4096];
    while (fgets(line, sizeof line, stdin) != NULL) {
        line[strcspn(line, "\n")] = '\0';
        if (!sign_file(key, line)) {
            fprintf(stderr, "cannot sign %s\n", line);
            return 1;
        }
    }
    EVP_PKEY_free(key);
    return 0;
}
