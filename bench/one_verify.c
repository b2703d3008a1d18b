/* The limit of the signature sweep: each file read and hashed once, and exactly one RSA
 * verification, with the key known beforehand to have signed it.
 *
 *   one_verify <tree> <skip prefix> <certificate>=<path prefix>...
 *
 * Parses each certificate's public key once, then walks <tree>: for each regular file that is
 * neither a ".sig" nor under <skip prefix>, reads its 256-byte signature, hashes the file once
 * with SHA-256 and verifies it with the key of the first <path prefix> the file's path starts
 * with, and only that key. Prints one line per file and exits 0 only if every file verified. */
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

static EVP_PKEY_CTX *key_for(const char *path) {
    for (int k = 0; k < key_count; k++)
        if (strncmp(path, prefixes[k], strlen(prefixes[k])) == 0) return verifiers[k];
    return NULL;
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
    EVP_PKEY_CTX *verifier = key_for(path);
    int ok = verifier != NULL && read_exact(sig_path, sig, sizeof sig) && digest_file(path, md) &&
             EVP_PKEY_verify(verifier, sig, sizeof sig, md, sizeof md) == 1;
    ERR_clear_error();
    files++;
    if (!ok) failures++;
    printf("%s - %s\n", path, ok ? "verified" : "failed");
    return 0;
}

int main(int argc, char **argv) {
    if (argc < 4 || argc - 3 > MAX_KEYS) {
        fprintf(stderr, "usage: one_verify <tree> <skip prefix> <certificate>=<path prefix>...\n");
        return 2;
    }
    skip_prefix = argv[2];
    for (int i = 3; i < argc; i++) {
        char *eq = strchr(argv[i], '=');
        if (eq == NULL) {
            fprintf(stderr, "no path prefix in %s\n", argv[i]);
            return 2;
        }
        *eq = '\0';
        prefixes[key_count] = eq + 1;
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
