/* The Security API device of a simulated terminal, as a FUSE file system.
 *
 *   orvin-sim-sapi MOUNTPOINT READY_FD
 *
 * "sapi0" stands in for the device node and "proc" for its proc file; the test harness binds them
 * onto the terminal's "/dev/sapi0" and "/proc/sapi". Every open, write, read and close of the two
 * is logged in order, byte for byte. The device keeps what the program can observe of the security
 * processor: a KBPK per acquirer with its flags, the terminal key and its subject, the rate-limit
 * state. Digests are SHA-256 so that tests can predict them:
 *
 *   KBPK from a file   key digest = SHA-256(KBPK value), second digest = SHA-256(whole request),
 *                      protected KBPK = key digest XOR SHA-256("orvin-sim-sapi kbpk wrap"), so a
 *                      protected KBPK sent back restores the same key identity;
 *   TR-31 key block    key digest = SHA-256(key block), second digest = SHA-256(whole request),
 *                      protected key = a keyed expansion of the block, a quarter of its size (at
 *                      least 16 bytes), so a reply never outgrows the block it answers.
 *
 * The control side lives in the same mount, outside the bound files: "ctl" takes one text command
 * per write, "events" and "state" give a snapshot of the log and of the device at open. The
 * daemon writes one byte to READY_FD once mounted, and ends on SIGTERM or when its parent dies.
 */
#define FUSE_USE_VERSION 31
#include <errno.h>
#include <fuse.h>
#include <openssl/evp.h>
#include <signal.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <unistd.h>

#define TAG 0xD1
#define KBPK_REMOVE 0xB3
#define KBPK_INSTALL 0xB4
#define KEY_INSTALL 0xB7
#define KEY_ISSUER_INIT 0xBE
#define RATE_LIMIT_INIT 0xBF
#define KBPK_UPDATE_PCI_PIN 0xC2
#define FLAG_PCI_PIN 0x8000u
#define KBPK_SIZE 256
#define PROTECTED_KBPK_SIZE 32
#define MAX_KEY_BLOCK 4088
/* The device's answer to a PIN key under a KBPK without PCI PIN security. */
#define ERR_PCI_PIN 252

enum kind { K_ROOT, K_DEV, K_PROC, K_CTL, K_EVENTS, K_STATE, K_COUNT };
static const char* const paths[K_COUNT] = {"/", "/sapi0", "/proc", "/ctl", "/events", "/state"};
static const char* const log_names[K_COUNT] = {"", "dev", "proc", "ctl", "events", "state"};

struct buf {
    unsigned char* data;
    size_t len, cap;
};

struct attr {
    mode_t mode;
    uid_t uid;
    gid_t gid;
};

/* Faults that a test arms for the device or the proc file; the write and read ones fire once. */
struct faults {
    int refuse_open;
    int fail_write;
    int fail_read;
    long short_write;
};

struct kbpk {
    int present;
    unsigned flags;
    unsigned char digest[32];
    unsigned char protected_[PROTECTED_KBPK_SIZE];
    const char* origin;
};

struct handle {
    enum kind kind;
    unsigned id;
    struct buf reply; /* the device's answer to the last request on this descriptor */
    size_t reply_pos;
    struct buf snapshot; /* what "events" or "state" read */
};

static struct attr attrs[K_COUNT] = {
    {S_IFDIR | 0755, 0, 0}, {S_IFREG | 0660, 0, 0}, {S_IFREG | 0666, 0, 0},
    {S_IFREG | 0200, 0, 0}, {S_IFREG | 0400, 0, 0}, {S_IFREG | 0400, 0, 0},
};
static struct faults faults[K_COUNT];
static long short_reply = -1;
static int have_next_reply;
static struct buf next_reply;
static struct kbpk kbpks[256];
static int have_terminal_key, have_rate_limit;
static struct buf subject, terminal_key, rate_limit;
static struct buf proc_record;
static long proc_first_read = -1;
static struct buf events;
static unsigned next_id;

static void die(const char* what) {
    fprintf(stderr, "orvin-sim-sapi: %s: %s\n", what, strerror(errno));
    exit(1);
}

/* ---- bytes -------------------------------------------------------------------------------- */

static void put(struct buf* b, const void* p, size_t n) {
    if (b->len + n > b->cap) {
        b->cap = (b->len + n) * 2 + 256;
        b->data = realloc(b->data, b->cap);
        if (!b->data) die("out of memory");
    }
    if (n) memcpy(b->data + b->len, p, n);
    b->len += n;
}

static void set(struct buf* b, const void* p, size_t n) {
    b->len = 0;
    put(b, p, n);
}

static void putf(struct buf* b, const char* fmt, ...) {
    char line[256];
    va_list ap;
    va_start(ap, fmt);
    int n = vsnprintf(line, sizeof line, fmt, ap);
    va_end(ap);
    put(b, line, n < 0 ? 0 : (size_t)n < sizeof line ? (size_t)n : sizeof line - 1);
}

/* Empty byte strings are written as "-" so that every field of a line has a token. */
static void put_hex(struct buf* b, const unsigned char* p, size_t n) {
    static const char digits[] = "0123456789abcdef";
    if (n == 0) put(b, "-", 1);
    for (size_t i = 0; i < n; i++) {
        char two[2] = {digits[p[i] >> 4], digits[p[i] & 15]};
        put(b, two, 2);
    }
}

static int hex_value(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

static int parse_hex(const char* text, struct buf* out) {
    out->len = 0;
    if (strcmp(text, "-") == 0) return 0;
    size_t n = strlen(text);
    if (n % 2) return -1;
    for (size_t i = 0; i < n; i += 2) {
        int hi = hex_value(text[i]), lo = hex_value(text[i + 1]);
        if (hi < 0 || lo < 0) return -1;
        unsigned char byte = (unsigned char)(hi << 4 | lo);
        put(out, &byte, 1);
    }
    return 0;
}

static int parse_long(const char* text, long min, long max, long* out) {
    if (!text || !*text) return -1;
    char* end;
    errno = 0;
    long v = strtol(text, &end, 0);
    if (errno || *end || v < min || v > max) return -1;
    *out = v;
    return 0;
}

static void sha256(const void* p, size_t n, unsigned char out[32]) {
    if (!EVP_Digest(p, n, out, NULL, EVP_sha256(), NULL)) {
        fprintf(stderr, "orvin-sim-sapi: SHA-256 failed\n");
        exit(1);
    }
}

static void sha256_2(const void* a, size_t an, const void* b, size_t bn, unsigned char out[32]) {
    struct buf joined = {0};
    put(&joined, a, an);
    put(&joined, b, bn);
    sha256(joined.data, joined.len, out);
    free(joined.data);
}

/* ---- the device --------------------------------------------------------------------------- */

static void kbpk_wrap(const unsigned char in[32], unsigned char out[32]) {
    static const char label[] = "orvin-sim-sapi kbpk wrap";
    unsigned char mask[32];
    sha256(label, sizeof label - 1, mask);
    for (int i = 0; i < 32; i++) out[i] = in[i] ^ mask[i];
}

static void kbpk_from_value(struct kbpk* k, unsigned flags, const unsigned char* value,
                            const char* origin) {
    k->present = 1;
    k->flags = flags;
    sha256(value, KBPK_SIZE, k->digest);
    kbpk_wrap(k->digest, k->protected_);
    k->origin = origin;
}

static void kbpk_from_protected(struct kbpk* k, unsigned flags, const unsigned char* protected_,
                                const char* origin) {
    k->present = 1;
    k->flags = flags;
    memcpy(k->protected_, protected_, PROTECTED_KBPK_SIZE);
    kbpk_wrap(protected_, k->digest); /* the wrap is its own inverse */
    k->origin = origin;
}

static void protect_key(unsigned acquirer, const struct kbpk* k, const unsigned char* block,
                        size_t n, struct buf* out) {
    size_t want = n / 4 < 16 ? 16 : n / 4;
    struct buf seed = {0};
    unsigned char a = (unsigned char)acquirer;
    put(&seed, "orvin-sim-sapi opk", 18);
    put(&seed, &a, 1);
    put(&seed, k->digest, 32);
    put(&seed, block, n);
    for (uint32_t counter = 0; want > 0; counter++) {
        unsigned char be[4] = {counter >> 24, counter >> 16, counter >> 8, counter};
        unsigned char part[32];
        sha256_2(seed.data, seed.len, be, 4, part);
        size_t take = want < 32 ? want : 32;
        put(out, part, take);
        want -= take;
    }
    free(seed.data);
}

static unsigned le16(const unsigned char* p) { return p[0] | (unsigned)p[1] << 8; }

static uint32_t le32(const unsigned char* p) {
    return p[0] | (uint32_t)p[1] << 8 | (uint32_t)p[2] << 16 | (uint32_t)p[3] << 24;
}

/* The key block's own header must be whole: a version the device knows and a length field that
 * matches what was sent. */
static int key_block_ok(const unsigned char* p, size_t n) {
    if (n < 16 || !strchr("0ABC", p[0]) || p[0] == 0) return 0;
    size_t length = 0;
    for (int i = 1; i <= 4; i++) {
        if (p[i] < '0' || p[i] > '9') return 0;
        length = length * 10 + (p[i] - '0');
    }
    return length == n;
}

/* Acts on one request; 0 or -errno, with a word for the log. A reply, if any, goes to *reply. */
static int device_request(const unsigned char* req, size_t n, struct buf* reply, int* has_reply,
                          const char** note) {
    *has_reply = 0;
    *note = "ok";
    if (n < 8) return *note = "short-header", -EIO;
    if (req[1] != TAG) return *note = "bad-tag", -EIO;
    if (req[3] != 0) return *note = "bad-reserved", -EIO;
    if (le32(req + 4) != n - 8) return *note = "bad-length", -EIO;
    unsigned command = req[0], acquirer = req[2];
    const unsigned char* payload = req + 8;
    size_t len = n - 8;
    struct kbpk* k = &kbpks[acquirer];
    unsigned char digest[32];

    switch (command) {
    case KBPK_REMOVE:
        if (len != 0) return *note = "bad-length", -EIO;
        k->present = 0;
        return 0;
    case KBPK_INSTALL:
        if (len == 2 + KBPK_SIZE) {
            kbpk_from_value(k, le16(payload), payload + 2, "file");
            reply->len = 0;
            put(reply, k->digest, 32);
            sha256(req, n, digest);
            put(reply, digest, 32);
            put(reply, k->protected_, 32);
            *has_reply = 1;
            return 0;
        }
        if (len == 2 + PROTECTED_KBPK_SIZE) {
            kbpk_from_protected(k, le16(payload), payload + 2, "protected");
            return 0;
        }
        return *note = "bad-length", -EIO;
    case KBPK_UPDATE_PCI_PIN:
        if (len != 2 + KBPK_SIZE) return *note = "bad-length", -EIO;
        if (!k->present) return *note = "no-kbpk", -EIO;
        sha256(payload + 2, KBPK_SIZE, digest);
        if (memcmp(digest, k->digest, 32) != 0) return *note = "kbpk-mismatch", -EIO;
        k->flags = le16(payload);
        return 0;
    case KEY_INSTALL:
        if (len == 0 || len > MAX_KEY_BLOCK) return *note = "bad-length", -EIO;
        if (!k->present) return *note = "no-kbpk", -EIO;
        if (!key_block_ok(payload, len)) return *note = "bad-key-block", -EIO;
        if (payload[5] == 'P' && payload[6] == '0' && !(k->flags & FLAG_PCI_PIN))
            return *note = "pin-key-without-pci-pin", -ERR_PCI_PIN;
        reply->len = 0;
        sha256(payload, len, digest);
        put(reply, digest, 32);
        sha256(req, n, digest);
        put(reply, digest, 32);
        protect_key(acquirer, k, payload, len, reply);
        *has_reply = 1;
        return 0;
    case KEY_ISSUER_INIT:
        if (acquirer != 0) return *note = "bad-acquirer", -EIO;
        if (len < 1 || 1 + (size_t)payload[0] > len) return *note = "bad-length", -EIO;
        set(&subject, payload + 1, payload[0]);
        set(&terminal_key, payload + 1 + payload[0], len - 1 - payload[0]);
        have_terminal_key = 1;
        return 0;
    case RATE_LIMIT_INIT:
        if (acquirer != 0) return *note = "bad-acquirer", -EIO;
        set(&rate_limit, payload, len);
        have_rate_limit = 1;
        return 0;
    default:
        return *note = "unknown-command", -EIO;
    }
}

/* ---- the log ------------------------------------------------------------------------------ */

static void log_start(const struct handle* h, const char* op, long result) {
    putf(&events, "%s %u %s %ld ", log_names[h->kind], h->id, op, result);
}

static void log_end(const char* note) {
    if (note) putf(&events, " %s", note);
    put(&events, "\n", 1);
}

static void state_text(struct buf* out) {
    for (int a = 0; a < 256; a++) {
        const struct kbpk* k = &kbpks[a];
        if (!k->present) continue;
        putf(out, "kbpk %d %04x ", a, k->flags);
        put_hex(out, k->digest, 32);
        put(out, " ", 1);
        put_hex(out, k->protected_, 32);
        putf(out, " %s\n", k->origin);
    }
    if (have_terminal_key) {
        put(out, "terminal-key ", 13);
        put_hex(out, subject.data, subject.len);
        put(out, " ", 1);
        put_hex(out, terminal_key.data, terminal_key.len);
        put(out, "\n", 1);
    }
    if (have_rate_limit) {
        put(out, "rate-limit ", 11);
        put_hex(out, rate_limit.data, rate_limit.len);
        put(out, "\n", 1);
    }
}

/* ---- control ------------------------------------------------------------------------------ */

static int file_word(const char* word) {
    if (word && strcmp(word, "dev") == 0) return K_DEV;
    if (word && strcmp(word, "proc") == 0) return K_PROC;
    return -1;
}

/* One command per write: "clear", "refuse-open FILE ERRNO", "fail-write FILE ERRNO",
 * "fail-read FILE ERRNO", "short-write FILE N", "short-reply N", "next-reply HEX",
 * "proc-record HEX [FIRST]", "kbpk ACQ FLAGS VALUE-HEX", "kbpk-protected ACQ FLAGS HEX",
 * "kbpk-remove ACQ". ERRNO 0 and N -1 disarm. */
static int control(char* text) {
    char* words[5] = {0};
    int count = 0;
    char* save;
    for (char* w = strtok_r(text, " \n", &save); w; w = strtok_r(NULL, " \n", &save)) {
        if (count == 5) return -EINVAL;
        words[count++] = w;
    }
    if (count == 0) return -EINVAL;
    const char* verb = words[0];
    long v, acquirer, flags, first_read = -1;
    int file = file_word(words[1]);
    struct buf bytes = {0};
    int rc = -EINVAL;

    if (strcmp(verb, "clear") == 0 && count == 1) {
        events.len = 0;
        rc = 0;
    } else if (count == 3 && file >= 0 && parse_long(words[2], -1, 4095, &v) == 0) {
        rc = 0;
        if (strcmp(verb, "refuse-open") == 0 && v >= 0) faults[file].refuse_open = (int)v;
        else if (strcmp(verb, "fail-write") == 0 && v >= 0) faults[file].fail_write = (int)v;
        else if (strcmp(verb, "fail-read") == 0 && v >= 0) faults[file].fail_read = (int)v;
        else if (strcmp(verb, "short-write") == 0) faults[file].short_write = v;
        else rc = -EINVAL;
    } else if (strcmp(verb, "short-reply") == 0 && count == 2 &&
               parse_long(words[1], -1, 1 << 20, &v) == 0) {
        short_reply = v;
        rc = 0;
    } else if (strcmp(verb, "next-reply") == 0 && count == 2 && parse_hex(words[1], &bytes) == 0) {
        set(&next_reply, bytes.data, bytes.len);
        have_next_reply = 1;
        rc = 0;
    } else if (strcmp(verb, "proc-record") == 0 && (count == 2 || count == 3) &&
               parse_hex(words[1], &bytes) == 0 &&
               (count == 2 || parse_long(words[2], -1, 1 << 20, &first_read) == 0)) {
        set(&proc_record, bytes.data, bytes.len);
        proc_first_read = first_read;
        rc = 0;
    } else if (strcmp(verb, "kbpk-remove") == 0 && count == 2 &&
               parse_long(words[1], 0, 255, &acquirer) == 0) {
        kbpks[acquirer].present = 0;
        rc = 0;
    } else if ((strcmp(verb, "kbpk") == 0 || strcmp(verb, "kbpk-protected") == 0) && count == 4 &&
               parse_long(words[1], 0, 255, &acquirer) == 0 &&
               parse_long(words[2], 0, 0xFFFF, &flags) == 0 && parse_hex(words[3], &bytes) == 0) {
        if (strcmp(verb, "kbpk") == 0 && bytes.len == KBPK_SIZE) {
            kbpk_from_value(&kbpks[acquirer], (unsigned)flags, bytes.data, "set");
            rc = 0;
        } else if (strcmp(verb, "kbpk-protected") == 0 && bytes.len == PROTECTED_KBPK_SIZE) {
            kbpk_from_protected(&kbpks[acquirer], (unsigned)flags, bytes.data, "set");
            rc = 0;
        }
    }
    free(bytes.data);
    return rc;
}

/* ---- file system -------------------------------------------------------------------------- */

static int kind_of(const char* path) {
    for (int k = 0; k < K_COUNT; k++)
        if (strcmp(path, paths[k]) == 0) return k;
    return -1;
}

static struct handle* handle_of(struct fuse_file_info* fi) {
    return (struct handle*)(uintptr_t)fi->fh;
}

static void* sapi_init(struct fuse_conn_info* conn, struct fuse_config* cfg) {
    (void)conn;
    /* Attributes change under the test's hands (chown of the device node): never cache them. */
    cfg->entry_timeout = 0;
    cfg->attr_timeout = 0;
    cfg->negative_timeout = 0;
    cfg->direct_io = 1;
    return NULL;
}

static int sapi_getattr(const char* path, struct stat* st, struct fuse_file_info* fi) {
    (void)fi;
    int k = kind_of(path);
    if (k < 0) return -ENOENT;
    memset(st, 0, sizeof *st);
    st->st_ino = (ino_t)k + 1;
    st->st_mode = attrs[k].mode;
    st->st_uid = attrs[k].uid;
    st->st_gid = attrs[k].gid;
    st->st_nlink = k == K_ROOT ? 2 : 1;
    return 0;
}

static int sapi_readdir(const char* path, void* buf, fuse_fill_dir_t fill, off_t off,
                        struct fuse_file_info* fi, enum fuse_readdir_flags flags) {
    (void)off, (void)fi, (void)flags;
    if (kind_of(path) != K_ROOT) return -ENOTDIR;
    fill(buf, ".", NULL, 0, 0);
    fill(buf, "..", NULL, 0, 0);
    for (int k = K_ROOT + 1; k < K_COUNT; k++) fill(buf, paths[k] + 1, NULL, 0, 0);
    return 0;
}

static int sapi_chmod(const char* path, mode_t mode, struct fuse_file_info* fi) {
    (void)fi;
    int k = kind_of(path);
    if (k < 0) return -ENOENT;
    attrs[k].mode = (attrs[k].mode & S_IFMT) | (mode & 07777);
    return 0;
}

static int sapi_chown(const char* path, uid_t uid, gid_t gid, struct fuse_file_info* fi) {
    (void)fi;
    int k = kind_of(path);
    if (k < 0) return -ENOENT;
    if (uid != (uid_t)-1) attrs[k].uid = uid;
    if (gid != (gid_t)-1) attrs[k].gid = gid;
    return 0;
}

/* Truncation and times mean nothing to a device; accepting them lets plain file helpers open
 * the bound files. */
static int sapi_truncate(const char* path, off_t size, struct fuse_file_info* fi) {
    (void)size, (void)fi;
    return kind_of(path) < 0 ? -ENOENT : 0;
}

static int sapi_utimens(const char* path, const struct timespec tv[2], struct fuse_file_info* fi) {
    (void)tv, (void)fi;
    return kind_of(path) < 0 ? -ENOENT : 0;
}

static int sapi_open(const char* path, struct fuse_file_info* fi) {
    int k = kind_of(path);
    if (k < 0) return -ENOENT;
    if (k == K_ROOT) return -EISDIR;
    struct handle* h = calloc(1, sizeof *h);
    if (!h) return -ENOMEM;
    h->kind = (enum kind)k;
    h->id = ++next_id;
    if (k == K_DEV || k == K_PROC) {
        int refuse = faults[k].refuse_open;
        log_start(h, "open", refuse ? -refuse : 0);
        putf(&events, "%x", (unsigned)fi->flags);
        log_end(NULL);
        if (refuse) {
            free(h);
            return -refuse;
        }
    } else if (k == K_EVENTS) {
        put(&h->snapshot, events.data, events.len);
    } else if (k == K_STATE) {
        state_text(&h->snapshot);
    }
    fi->direct_io = 1;
    fi->nonseekable = k == K_DEV;
    fi->fh = (uint64_t)(uintptr_t)h;
    return 0;
}

static int sapi_release(const char* path, struct fuse_file_info* fi) {
    (void)path;
    struct handle* h = handle_of(fi);
    if (h->kind == K_DEV || h->kind == K_PROC) {
        log_start(h, "close", 0);
        put(&events, "-", 1);
        log_end(NULL);
    }
    free(h->reply.data);
    free(h->snapshot.data);
    free(h);
    return 0;
}

static int read_from(const struct buf* b, size_t pos, char* out, size_t size) {
    size_t n = pos >= b->len ? 0 : b->len - pos < size ? b->len - pos : size;
    if (n) memcpy(out, b->data + pos, n);
    return (int)n;
}

static int sapi_read(const char* path, char* out, size_t size, off_t off,
                     struct fuse_file_info* fi) {
    (void)path;
    struct handle* h = handle_of(fi);
    struct faults* f = &faults[h->kind];
    int n;
    switch (h->kind) {
    case K_EVENTS:
    case K_STATE:
        return read_from(&h->snapshot, (size_t)off, out, size);
    case K_DEV:
    case K_PROC:
        break;
    default:
        return -EBADF;
    }
    if (f->fail_read) {
        n = -f->fail_read;
        f->fail_read = 0;
    } else if (h->kind == K_DEV) {
        /* The device keeps no position: each read takes the next part of the pending reply. */
        n = read_from(&h->reply, h->reply_pos, out, size);
        h->reply_pos += (size_t)n;
    } else {
        size_t want = off == 0 && proc_first_read >= 0 && (size_t)proc_first_read < size
                          ? (size_t)proc_first_read : size;
        n = read_from(&proc_record, (size_t)off, out, want);
    }
    log_start(h, "read", n);
    putf(&events, "%zu ", size);
    put_hex(&events, (const unsigned char*)out, n > 0 ? (size_t)n : 0);
    log_end(NULL);
    return n;
}

static int sapi_write(const char* path, const char* data, size_t size, off_t off,
                      struct fuse_file_info* fi) {
    (void)path, (void)off;
    struct handle* h = handle_of(fi);
    const unsigned char* bytes = (const unsigned char*)data;
    struct faults* f = &faults[h->kind];
    const char* note = "ok";
    int has_reply = 0;
    long rc;

    if (h->kind == K_CTL) {
        char* text = strndup(data, size);
        if (!text) return -ENOMEM;
        rc = control(text);
        free(text);
        return rc < 0 ? (int)rc : (int)size;
    }
    if (h->kind != K_DEV && h->kind != K_PROC) return -EBADF;

    if (f->fail_write) {
        rc = -f->fail_write;
        f->fail_write = 0;
        note = "injected";
    } else {
        rc = (long)size;
        if (h->kind == K_DEV) {
            struct buf reply = {0};
            int err = device_request(bytes, size, &reply, &has_reply, &note);
            if (err) {
                rc = err;
            } else if (has_reply) {
                if (have_next_reply) {
                    set(&reply, next_reply.data, next_reply.len);
                    have_next_reply = 0;
                }
                if (short_reply >= 0 && (size_t)short_reply < reply.len) reply.len = (size_t)short_reply;
                short_reply = -1;
                free(h->reply.data);
                h->reply = reply;
                h->reply_pos = 0;
            } else {
                free(reply.data);
            }
        }
        if (rc >= 0 && f->short_write >= 0 && (size_t)f->short_write < size) {
            rc = f->short_write;
            f->short_write = -1;
            note = "short";
        }
    }
    log_start(h, "write", rc);
    put_hex(&events, bytes, size);
    log_end(note);
    return (int)rc;
}

static const struct fuse_operations operations = {
    .init = sapi_init,
    .getattr = sapi_getattr,
    .readdir = sapi_readdir,
    .chmod = sapi_chmod,
    .chown = sapi_chown,
    .truncate = sapi_truncate,
    .utimens = sapi_utimens,
    .open = sapi_open,
    .release = sapi_release,
    .read = sapi_read,
    .write = sapi_write,
};

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: orvin-sim-sapi MOUNTPOINT READY_FD\n");
        return 2;
    }
    long ready_fd;
    if (parse_long(argv[2], 0, 1 << 20, &ready_fd) != 0) {
        fprintf(stderr, "orvin-sim-sapi: bad descriptor %s\n", argv[2]);
        return 2;
    }
    /* A test run that dies must not leave a daemon (and its mount) behind. */
    pid_t parent = getppid();
    if (prctl(PR_SET_PDEATHSIG, SIGTERM) != 0) die("prctl");
    if (getppid() != parent) return 1;
    for (int k = 0; k < K_COUNT; k++) faults[k].short_write = -1;

    /* allow_other: the program runs set-user-ID, with a real user ID that is not the mount's. */
    char* fuse_argv[] = {argv[0], "-o", "allow_other,default_permissions,fsname=orvin-sapi", NULL};
    struct fuse_args args = FUSE_ARGS_INIT(3, fuse_argv);
    struct fuse* fuse = fuse_new(&args, &operations, sizeof operations, NULL);
    if (!fuse) die("fuse_new");
    if (fuse_mount(fuse, argv[1]) != 0) die("fuse_mount");
    struct fuse_session* session = fuse_get_session(fuse);
    if (fuse_set_signal_handlers(session) != 0) die("signal handlers");
    if (write((int)ready_fd, "1", 1) != 1) die("ready");
    close((int)ready_fd);

    int rc = fuse_loop(fuse);
    fuse_remove_signal_handlers(session);
    fuse_unmount(fuse);
    fuse_destroy(fuse);
    return rc < 0 ? 1 : 0;
}
