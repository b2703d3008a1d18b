/* Stand-in for every platform tool of the simulated terminal.
 *
 * Each run appends one record of how it was started to /var/sim/calls.log, then behaves as the
 * tool named by the exec'd path (argv[0] is the caller's choice and proves nothing). Tests steer
 * a tool with /var/sim/tools/<name>: "exit N", "signal N", or "sleep N" (then act as usual);
 * /var/sim/tools/<name>.stdout and <name>.stderr, when present, are written to its standard
 * output and error first (a chatty tool), before it exits as told; to a <name>.stdin that exists
 * it appends whatever it can read on its standard input.
 * Each run also appends "<name> ign=<hex> blk=<hex>" (its ignored and blocked signals, as in
 * /proc/<pid>/status) to /var/sim/signals.log, and nandwrite keeps the bytes it was given in
 * /var/sim/nand/<device name>.
 *
 * Record: u32 length of the rest, then the exec path, u32 argc and the arguments, u32 envc and
 * the environment, u32 count and the open descriptors, then uid, euid, gid, egid (each u32).
 * Every string is a u32 length and its bytes, so empty and multi-line arguments survive.
 */
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/auxv.h>
#include <sys/stat.h>
#include <unistd.h>

extern char** environ;

#define CALLS_LOG "/var/sim/calls.log"
#define MAX_FD 1024

struct buf {
    char* data;
    size_t len, cap;
};

static void put(struct buf* b, const void* p, size_t n) {
    if (b->len + n > b->cap) {
        b->cap = (b->len + n) * 2 + 256;
        b->data = realloc(b->data, b->cap);
        if (!b->data) {
            perror("orvin-sim-stub");
            exit(125);
        }
    }
    memcpy(b->data + b->len, p, n);
    b->len += n;
}

static void put_u32(struct buf* b, uint32_t v) { put(b, &v, sizeof v); }

static void put_str(struct buf* b, const char* s) {
    size_t n = strlen(s);
    put_u32(b, (uint32_t)n);
    put(b, s, n);
}

static void put_list(struct buf* b, char* const* v) {
    uint32_t n = 0;
    while (v && v[n]) n++;
    put_u32(b, n);
    for (uint32_t i = 0; i < n; i++) put_str(b, v[i]);
}

/* A lost record would make a test pass for the wrong reason, so failing to log is loud. */
static void record(const char* exec_path, char** argv) {
    int fds[MAX_FD];
    uint32_t nfds = 0;
    for (int fd = 0; fd < MAX_FD; fd++)
        if (fcntl(fd, F_GETFD) != -1) fds[nfds++] = fd;

    struct buf body = {0}, rec = {0};
    put_str(&body, exec_path);
    put_list(&body, argv);
    put_list(&body, environ);
    put_u32(&body, nfds);
    for (uint32_t i = 0; i < nfds; i++) put_u32(&body, (uint32_t)fds[i]);
    put_u32(&body, getuid());
    put_u32(&body, geteuid());
    put_u32(&body, getgid());
    put_u32(&body, getegid());
    put_u32(&rec, (uint32_t)body.len);
    put(&rec, body.data, body.len);

    int fd = open(CALLS_LOG, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0622);
    if (fd < 0 || write(fd, rec.data, rec.len) != (ssize_t)rec.len) {
        fprintf(stderr, "orvin-sim-stub: cannot record in %s: %s\n", CALLS_LOG, strerror(errno));
        exit(125);
    }
    close(fd);
    free(body.data);
    free(rec.data);
}

/* Reads a whole file; NULL when it cannot be opened. */
static char* slurp(const char* path, size_t* len) {
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return NULL;
    struct buf b = {0};
    char chunk[4096];
    ssize_t n;
    while ((n = read(fd, chunk, sizeof chunk)) > 0) put(&b, chunk, (size_t)n);
    close(fd);
    put(&b, "", 1);
    *len = b.len - 1;
    return b.data;
}

static void write_to(int fd, const char* data, size_t len) {
    while (len > 0) {
        ssize_t n = write(fd, data, len);
        if (n <= 0) exit(1);
        data += n;
        len -= (size_t)n;
    }
}

static void write_out(const char* data, size_t len) { write_to(1, data, len); }

/* Keeps what the tool was given to read, for a test that wants to know. */
static void listen(const char* name) {
    char path[512];
    snprintf(path, sizeof path, "/var/sim/tools/%s.stdin", name);
    int fd = open(path, O_WRONLY | O_APPEND | O_CLOEXEC);
    if (fd < 0) return;
    char chunk[4096];
    ssize_t n;
    while ((n = read(0, chunk, sizeof chunk)) > 0)
        if (write(fd, chunk, (size_t)n) != n) exit(125);
    close(fd);
}

/* What a test wants the tool to say on descriptor fd. */
static void speak(const char* name, const char* suffix, int fd) {
    char path[512];
    snprintf(path, sizeof path, "/var/sim/tools/%s.%s", name, suffix);
    size_t len;
    char* text = slurp(path, &len);
    if (!text) return;
    write_to(fd, text, len);
    free(text);
}

static void apply_override(const char* name) {
    char path[512];
    snprintf(path, sizeof path, "/var/sim/tools/%s", name);
    size_t len;
    char* text = slurp(path, &len);
    if (!text) return;
    int n;
    if (sscanf(text, "exit %d", &n) == 1) exit(n);
    if (sscanf(text, "sleep %d", &n) == 1) {
        sleep((unsigned)n);
        free(text);
        return;
    }
    if (sscanf(text, "signal %d", &n) == 1) {
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_UNBLOCK, &all, NULL);
        signal(n, SIG_DFL);
        raise(n);
        exit(126); /* a signal whose default is to be ignored */
    }
    fprintf(stderr, "orvin-sim-stub: bad override in %s: %s\n", path, text);
    exit(125);
}

static void record_signals(const char* name) {
    unsigned long long ign = 0, blk = 0;
    sigset_t mask;
    sigprocmask(SIG_BLOCK, NULL, &mask);
    for (int sig = 1; sig <= 64; sig++) {
        struct sigaction sa;
        if (sigaction(sig, NULL, &sa) == 0 && sa.sa_handler == SIG_IGN) ign |= 1ULL << (sig - 1);
        if (sigismember(&mask, sig) == 1) blk |= 1ULL << (sig - 1);
    }
    char line[512];
    snprintf(line, sizeof line, "%s ign=%016llx blk=%016llx\n", name, ign, blk);
    /* Only a root run can record (tests read it as a list, so a missing line is noticed). */
    int fd = open("/var/sim/signals.log", O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) return;
    if (write(fd, line, strlen(line)) != (ssize_t)strlen(line)) exit(125);
    close(fd);
}

/* Keeps what would have been flashed, so a test can compare it with what was verified; like
 * before, an image it cannot read is not its failure. */
static int nandwrite(int argc, char** argv) {
    size_t len;
    char* data = argc < 3 ? NULL : slurp(argv[argc - 1], &len);
    if (!data) return 0;
    const char* dev = strrchr(argv[argc - 2], '/');
    char path[512];
    mkdir("/var/sim/nand", 0700);
    snprintf(path, sizeof path, "/var/sim/nand/%s", dev ? dev + 1 : argv[argc - 2]);
    int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    int ok = fd >= 0 && write(fd, data, len) == (ssize_t)len;
    if (fd >= 0) close(fd);
    free(data);
    return ok ? 0 : 1;
}

static int uid_taken(const char* passwd, unsigned uid) {
    for (const char* line = passwd; line && *line;) {
        unsigned u;
        if (sscanf(line, "%*[^:]:%*[^:]:%u:", &u) == 1 && u == uid) return 1;
        line = strchr(line, '\n');
        if (line) line++;
    }
    return 0;
}

static unsigned free_uid(void) {
    size_t len;
    char* passwd = slurp("/etc/passwd", &len);
    unsigned uid = 1000;
    while (passwd && uid_taken(passwd, uid)) uid++;
    free(passwd);
    return uid;
}

static void append(const char* path, const char* text) {
    int fd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0 || write(fd, text, strlen(text)) != (ssize_t)strlen(text)) {
        fprintf(stderr, "adduser: cannot write %s\n", path);
        exit(1);
    }
    close(fd);
}

static int adduser(int argc, char** argv) {
    int no_home = 0;
    long uid = -1;
    for (int i = 1; i < argc - 1; i++) {
        if (strcmp(argv[i], "-H") == 0) no_home = 1;
        else if (strncmp(argv[i], "-u", 2) == 0) uid = strtol(argv[i] + 2, NULL, 10);
    }
    if (argc < 2) return 1;
    const char* name = argv[argc - 1];
    if (uid < 0) uid = (long)free_uid();
    char line[1024];
    snprintf(line, sizeof line, "%s:x:%ld:%ld:Linux User,,,:/home/%s:/bin/sh\n", name, uid, uid, name);
    append("/etc/passwd", line);
    snprintf(line, sizeof line, "%s:x:%ld:\n", name, uid);
    append("/etc/group", line);
    if (!no_home) {
        snprintf(line, sizeof line, "/home/%s", name);
        if (mkdir(line, 0755) == 0) {
            if (chown(line, (uid_t)uid, (gid_t)uid) != 0 || chmod(line, 0755) != 0) return 1;
        }
    }
    return 0;
}

static int nvram(int argc, char** argv) {
    char path[4096];
    if (argc == 3 && strcmp(argv[1], "get") == 0) {
        snprintf(path, sizeof path, "/var/sim/nvram/%s", argv[2]);
        size_t len;
        char* value = slurp(path, &len);
        if (value) write_out(value, len);
        free(value);
        return 0;
    }
    if (argc == 3 && strcmp(argv[1], "set") == 0) {
        const char* eq = strchr(argv[2], '=');
        if (!eq) return 1;
        snprintf(path, sizeof path, "/var/sim/nvram/%.*s", (int)(eq - argv[2]), argv[2]);
        int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (fd < 0) return 1;
        ssize_t want = (ssize_t)strlen(eq + 1);
        int ok = write(fd, eq + 1, (size_t)want) == want;
        close(fd);
        return ok ? 0 : 1;
    }
    return 0;
}

static int dmesg(void) {
    size_t len;
    char* log = slurp("/var/sim/dmesg", &len);
    if (log) {
        write_out(log, len);
        free(log);
    } else {
        static const char fixed[] = "[    0.000000] Booting Linux on physical CPU 0x0\n"
                                    "[    0.000000] Linux version 4.1.15 (orvin@build) #1 PREEMPT\n";
        write_out(fixed, sizeof fixed - 1);
    }
    return 0;
}

int main(int argc, char** argv) {
    const char* exec_path = (const char*)getauxval(AT_EXECFN);
    if (!exec_path) exec_path = "";
    record(exec_path, argv);

    const char* slash = strrchr(exec_path, '/');
    const char* name = slash ? slash + 1 : exec_path;
    record_signals(name);
    listen(name);
    speak(name, "stdout", 1);
    speak(name, "stderr", 2);
    apply_override(name);

    if (strcmp(name, "adduser") == 0) return adduser(argc, argv);
    if (strcmp(name, "nvram") == 0) return nvram(argc, argv);
    if (strcmp(name, "dmesg") == 0) return dmesg();
    if (strcmp(name, "nandwrite") == 0) return nandwrite(argc, argv);
    return 0;
}
