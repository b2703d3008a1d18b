/* The anchors of the signature sweep: the same job done as directly as OpenSSL 3 allows.
 *
 *   ideal_verify <tree> <skip prefix> <certificate>[=<path prefix>]...
 *
 * Parses every certificate's public key once, in the order given, then walks <tree>: for each
 * regular file that is neither a ".sig" nor under <skip prefix>, reads its 256-byte signature and
 * the file itself once and hashes it once with SHA-256. A file whose path starts with a
 * certificate's <path prefix> is verified with that key alone: exactly one RSA verification, the
 * limit of any search. Any other file tries the keys in order until the first match. Prints one
 * line per file and exits 0 only if every file verified. */
#define _XOPEN_SOURCE 700
#include <fcntl.h>
#include <ftw.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

enum { SIG_SIZE = 256, MAX_KEYS = 256, BLOCK = 256 * 1024 };

static EVP_PKEY_CTX *verifiers[MAX_KEYS];
static const char *prefixes[MAX_KEYS];
static int key_count;
static const char *skip_prefix;
static unsigned char block[BLOCK];
static long files, failures;

static int read_exact(const char *path, unsigned char *buf, size_t len) {
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return 0;
    size_t done = 0;
    while (done < len) {
        ssize_t n = read(fd, buf + done, len - done);
        if (n <= 0) break;
        done += (size_t)n;
    }
    close(fd);
    return done == len;
}

static int digest_file(const char *path, unsigned char *md) {
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return 0;
    EVP_MD_CTX *ctx = EVP_MD_CTX_new();
    int ok = ctx != NULL && EVP_DigestInit_ex(ctx, EVP_sha256(), NULL) == 1;
    ssize_t n;
    while (ok && (n = read(fd, block, sizeof block)) > 0) ok = EVP_DigestUpdate(ctx, block, (size_t)n) == 1;
    unsigned int len = 0;
    ok = ok && n == 0 && EVP_DigestFinal_ex(ctx, md, &len) == 1;
    EVP_MD_CTX_free(ctx);
    close(fd);
    return ok;
}

/* The one key known to have signed path, or -1 when the keys are to be tried in order. */
static int known_key(const char *path) {
    for (int k = 0; k < key_count; k++)
        if (prefixes[k] != NULL && strncmp(path, prefixes[k], strlen(prefixes[k])) == 0) return k;
    return -1;
}

static int step(const char *path, const struct stat *st, int type, struct FTW *ftw) {
    (void)st;
    (void)ftw;
    size_t len = strlen(path);
    if (type != FTW_F || (len >= 4 && strcmp(path + len - 4, ".sig") == 0) ||
        strncmp(path, skip_prefix, strlen(skip_prefix)) == 0)
        return 0;
    char sig_path[4096];
    unsigned char sig[SIG_SIZE], md[32];
    snprintf(sig_path, sizeof sig_path, "%s.sig", path);
    int match = -1;
    const int known = known_key(path);
    if (read_exact(sig_path, sig, sizeof sig) && digest_file(path, md)) {
        for (int k = known < 0 ? 0 : known; k < (known < 0 ? key_count : known + 1) && match < 0; k++) {
            if (verifiers[k] != NULL && EVP_PKEY_verify(verifiers[k], sig, sizeof sig, md, sizeof md) == 1)
                match = k;
            ERR_clear_error();
        }
    }
    files++;
    if (match < 0) failures++;
    printf("%s - %s\n", path, match < 0 ? "failed" : "verified");
    return 0;
}

int main(int argc, char **argv) {
    if (argc < 4 || argc - 3 > MAX_KEYS) {
        fprintf(stderr, "usage: ideal_verify <tree> <skip prefix> <certificate>[=<path prefix>]...\n");
        return 2;
    }
    skip_prefix = argv[2];
    for (int i = 3; i < argc; i++) {
        char *eq = strchr(argv[i], '=');
        if (eq != NULL) {
            *eq = '\0';
            prefixes[key_count] = eq + 1;
        }
        FILE *f = fopen(argv[i], "re");
        X509 *cert = f ? PEM_read_X509(f, NULL, NULL, NULL) : NULL;
        if (f) fclose(f);
        if (cert == NULL) {
            fprintf(stderr, "cannot read %s\n", argv[i]);
            return 2;
        }
        EVP_PKEY_CTX *ctx = EVP_PKEY_CTX_new(X509_get0_pubkey(cert), NULL);
        if (ctx == NULL || EVP_PKEY_verify_init(ctx) != 1 ||
            EVP_PKEY_CTX_set_signature_md(ctx, EVP_sha256()) != 1) {
            EVP_PKEY_CTX_free(ctx);
            ctx = NULL;
        }
        verifiers[key_count++] = ctx;
        X509_free(cert);
    }
    if (nftw(argv[1], step, 10, FTW_PHYS) != 0) return 2;
    for (int k = 0; k < key_count; k++) EVP_PKEY_CTX_free(verifiers[k]);
    fprintf(stderr, "%ld files, %ld failed\n", files, failures);
    return failures == 0 && files > 0 ? 0 : 1;
}
