/* Runs a command under ptrace and, at an exact system call of the program it finally executes,
 * stops it until the test says go on, or kills it on the spot. This makes races and runs cut
 * short deterministic: "freeze the program on entry to the openat of this name, swap the file,
 * let it go on", "power loss on entry to the rename whose new name is the final one".
 * Run as root by the test harness: a root tracer keeps the set-user-ID semantics of the exec.
 *
 * orvin-sim-trace --root DIR --report FD [--resume FD] [--kill] [--exit] [--execs N] [--nth N]
 *                 --at SYSCALL [--path GLOB] -- COMMAND ARGS...
 *
 *   --root DIR    the terminal's root as seen from here; paths relative to a descriptor or to the
 *                 working directory are resolved through /proc and made terminal paths with it
 *   --execs N     start matching after the N-th exec of the command (default 2: the launcher,
 *                 then the program it starts); children of the program are never traced
 *   --at SYSCALL  openat (open too), rename (rename, renameat, renameat2: the NEW path), mkdir
 *                 (mkdir, mkdirat), unlinkat, or fork (fork, vfork, clone, clone3 of the
 *                 process itself, not a thread); --path is an fnmatch pattern of the path
 *   --nth N       act on the N-th matching call (default 1)
 *   --kill        SIGKILL on entry, so the call never happens; otherwise the program is held in
 *                 the entry stop until one byte arrives on --resume ("k" kills it, end of file
 *                 kills it too, so a test that dies never leaves a root process running)
 *   --exit        act when the call returns instead: it has happened, nothing after it has
 *
 * Lines written to the report descriptor: "stopped\n", "killed\n", or "unmatched\n" when the
 * program ended without a match. The tracer ends with the program's status (128 + signal when a
 * signal ended it). Its own failures end with 127 and a line on
 * stderr starting with "orvin-sim-trace:".
 */
#include <errno.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <limits.h>
#include <linux/audit.h>
#include <linux/sched.h>
#include <signal.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#if defined(__x86_64__)
#define NATIVE_ARCH AUDIT_ARCH_X86_64
#endif

enum kind { AT_OPEN, AT_RENAME, AT_MKDIR, AT_UNLINK, AT_FORK };

struct options {
    const char* root;
    const char* pattern;
    enum kind kind;
    int report_fd, resume_fd, kill, at_exit, execs, nth;
};

static void die(const char* fmt, ...) {
    int saved = errno;
    va_list ap;
    va_start(ap, fmt);
    fputs("orvin-sim-trace: ", stderr);
    vfprintf(stderr, fmt, ap);
    if (saved) fprintf(stderr, ": %s", strerror(saved));
    fputc('\n', stderr);
    va_end(ap);
    exit(127);
}

static long number(const char* text, const char* what) {
    char* end;
    errno = 0;
    long v = strtol(text, &end, 10);
    if (errno || end == text || *end || v < 0 || v > INT_MAX) {
        errno = 0;
        die("bad %s: %s", what, text);
    }
    return v;
}

static enum kind parse_kind(const char* name) {
    static const struct {
        const char* name;
        enum kind kind;
    } kinds[] = {{"openat", AT_OPEN}, {"rename", AT_RENAME}, {"mkdir", AT_MKDIR},
                 {"unlinkat", AT_UNLINK}, {"fork", AT_FORK}};
    for (size_t i = 0; i < sizeof kinds / sizeof kinds[0]; i++)
        if (strcmp(name, kinds[i].name) == 0) return kinds[i].kind;
    errno = 0;
    die("unknown system call: %s", name);
    return AT_OPEN;
}

static void report(int fd, const char* line) {
    size_t n = strlen(line);
    if (write(fd, line, n) != (ssize_t)n) die("report");
}

/* Reads a NUL-terminated string of the tracee; process_vm_readv may stop at a page it cannot
 * read in one piece, so fall back to one word at a time. */
static int read_string(pid_t pid, uint64_t addr, char* out, size_t size) {
    size_t got = 0;
    while (got + 1 < size) {
        struct iovec local = {out + got, 1}, remote = {(void*)(uintptr_t)(addr + got), 1};
        if (process_vm_readv(pid, &local, 1, &remote, 1, 0) != 1) {
            errno = 0;
            long word = ptrace(PTRACE_PEEKDATA, pid, (void*)(uintptr_t)(addr + got), NULL);
            if (errno) return -1;
            out[got] = (char)(word & 0xff);
        }
        if (out[got] == '\0') return 0;
        got++;
    }
    out[got] = '\0';
    return 0;
}

/* A path of the tracee as a terminal path: relative ones are joined to what the descriptor (or
 * the working directory) names, which /proc gives as a path under the terminal's root. */
static int terminal_path(const struct options* o, pid_t pid, int64_t dirfd, uint64_t addr,
                         char* out, size_t size) {
    char name[PATH_MAX];
    if (read_string(pid, addr, name, sizeof name) != 0) return -1;
    if (name[0] == '/') {
        int len = snprintf(out, size, "%s", name);
        return len < 0 || (size_t)len >= size ? -1 : 0;
    }
    char link[64], dir[PATH_MAX];
    if ((int)dirfd == AT_FDCWD) snprintf(link, sizeof link, "/proc/%d/cwd", (int)pid);
    else snprintf(link, sizeof link, "/proc/%d/fd/%d", (int)pid, (int)dirfd);
    ssize_t n = readlink(link, dir, sizeof dir - 1);
    if (n < 0) return -1;
    dir[n] = '\0';
    size_t root_len = strlen(o->root);
    const char* inside = dir;
    if (strncmp(dir, o->root, root_len) == 0 && (dir[root_len] == '/' || dir[root_len] == '\0'))
        inside = dir + root_len;
    int len = snprintf(out, size, "%s/%s", *inside ? inside : "", name);
    return len < 0 || (size_t)len >= size ? -1 : 0;
}

static int is_fork(pid_t pid, const struct __ptrace_syscall_info* info) {
    uint64_t nr = info->entry.nr;
#ifdef SYS_fork
    if (nr == SYS_fork) return 1;
#endif
#ifdef SYS_vfork
    if (nr == SYS_vfork) return 1;
#endif
    if (nr == SYS_clone) return !(info->entry.args[0] & CLONE_THREAD);
#ifdef SYS_clone3
    if (nr == SYS_clone3) {
        uint64_t flags;
        struct iovec local = {&flags, sizeof flags};
        struct iovec remote = {(void*)(uintptr_t)info->entry.args[0], sizeof flags};
        if (process_vm_readv(pid, &local, 1, &remote, 1, 0) != (ssize_t)sizeof flags) return 1;
        return !(flags & CLONE_THREAD);
    }
#endif
    return 0;
}

/* Whether this syscall entry is one the test asked for. */
static int matches(const struct options* o, pid_t pid, const struct __ptrace_syscall_info* info) {
    const uint64_t nr = info->entry.nr;
    const uint64_t* a = info->entry.args;
    int64_t dirfd = AT_FDCWD;
    uint64_t addr = 0;
    switch (o->kind) {
    case AT_FORK:
        return is_fork(pid, info);
    case AT_OPEN:
        if (nr == SYS_openat) dirfd = (int64_t)a[0], addr = a[1];
#ifdef SYS_open
        else if (nr == SYS_open) addr = a[0];
#endif
        else return 0;
        break;
    case AT_RENAME:
        if (nr == SYS_renameat || nr == SYS_renameat2) dirfd = (int64_t)a[2], addr = a[3];
#ifdef SYS_rename
        else if (nr == SYS_rename) addr = a[1];
#endif
        else return 0;
        break;
    case AT_MKDIR:
        if (nr == SYS_mkdirat) dirfd = (int64_t)a[0], addr = a[1];
#ifdef SYS_mkdir
        else if (nr == SYS_mkdir) addr = a[0];
#endif
        else return 0;
        break;
    case AT_UNLINK:
        if (nr == SYS_unlinkat) dirfd = (int64_t)a[0], addr = a[1];
        else return 0;
        break;
    }
    if (!o->pattern) return 1;
    char path[PATH_MAX + 64];
    if (terminal_path(o, pid, dirfd, addr, path, sizeof path) != 0) return 0;
    return fnmatch(o->pattern, path, 0) == 0;
}

static int status_of(int wstatus) {
    return WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 128 + WTERMSIG(wstatus);
}

/* Kills the program in its entry stop, or holds it there until the test answers. Returns
 * whether it goes on. */
static int act(const struct options* o, pid_t pid) {
    if (o->kill) {
        kill(pid, SIGKILL);
        report(o->report_fd, "killed\n");
        return 0;
    }
    report(o->report_fd, "stopped\n");
    char answer = 'k';
    ssize_t n;
    do n = read(o->resume_fd, &answer, 1);
    while (n < 0 && errno == EINTR);
    if (n != 1 || answer == 'k') {
        kill(pid, SIGKILL);
        return 0;
    }
    return 1;
}

/* Follows the program to its end. It stays attached after acting, only to pass signals on, so
 * that the tracer's own death (a test killed) still takes the program with it. */
static int trace(const struct options* o, pid_t pid) {
    int wstatus, execs = 0, seen = 0, done = 0, returning = 0;
    if (waitpid(pid, &wstatus, 0) != pid || !WIFSTOPPED(wstatus)) die("the child did not stop");
    if (ptrace(PTRACE_SETOPTIONS, pid, NULL,
               (void*)(PTRACE_O_TRACEEXEC | PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL)) != 0)
        die("PTRACE_SETOPTIONS");
    int request = PTRACE_CONT, signal_to_pass = 0;
    for (;;) {
        if (ptrace(request, pid, NULL, (void*)(intptr_t)signal_to_pass) != 0) die("ptrace resume");
        signal_to_pass = 0;
        if (waitpid(pid, &wstatus, 0) != pid) die("waitpid");
        if (WIFEXITED(wstatus) || WIFSIGNALED(wstatus)) break;
        int sig = WSTOPSIG(wstatus);
        if (sig == SIGTRAP && (wstatus >> 16) == PTRACE_EVENT_EXEC) {
            if (++execs == o->execs && !done) request = PTRACE_SYSCALL;
            continue;
        }
        if (sig != (SIGTRAP | 0x80)) {
            /* A group-stop reports its signal again; passing that on would stop it for ever. */
            siginfo_t si;
            signal_to_pass = ptrace(PTRACE_GETSIGINFO, pid, NULL, &si) == 0 ? sig : 0;
            continue;
        }
        struct __ptrace_syscall_info info;
        if (ptrace(PTRACE_GET_SYSCALL_INFO, pid, (void*)sizeof info, &info) <= 0)
            die("PTRACE_GET_SYSCALL_INFO");
        if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
            if (info.arch != NATIVE_ARCH) {
                errno = 0;
                die("the program runs another architecture's system calls");
            }
            if (!matches(o, pid, &info) || ++seen != o->nth) continue;
            if (o->at_exit) {
                returning = 1;
                continue;
            }
        } else if (!returning) {
            continue;
        }
        done = 1;
        request = PTRACE_CONT;
        if (!act(o, pid)) {
            if (waitpid(pid, &wstatus, 0) != pid) die("waitpid");
            return status_of(wstatus);
        }
    }
    if (!done) report(o->report_fd, "unmatched\n");
    return status_of(wstatus);
}

int main(int argc, char** argv) {
#ifndef NATIVE_ARCH
    (void)argc;
    (void)argv;
    errno = 0;
    die("only x86_64 system calls are known");
#else
    struct options o = {.report_fd = -1, .resume_fd = -1, .execs = 2, .nth = 1};
    int have_kind = 0, i = 1;
    for (; i < argc && strcmp(argv[i], "--") != 0; i++) {
        const char* opt = argv[i];
        if (strcmp(opt, "--kill") == 0 || strcmp(opt, "--exit") == 0) {
            *(opt[2] == 'k' ? &o.kill : &o.at_exit) = 1;
            continue;
        }
        if (i + 1 >= argc) die("%s needs a value", opt);
        const char* val = argv[++i];
        if (strcmp(opt, "--root") == 0) o.root = val;
        else if (strcmp(opt, "--report") == 0) o.report_fd = (int)number(val, "descriptor");
        else if (strcmp(opt, "--resume") == 0) o.resume_fd = (int)number(val, "descriptor");
        else if (strcmp(opt, "--execs") == 0) o.execs = (int)number(val, "exec count");
        else if (strcmp(opt, "--nth") == 0) o.nth = (int)number(val, "count");
        else if (strcmp(opt, "--path") == 0) o.pattern = val;
        else if (strcmp(opt, "--at") == 0) o.kind = parse_kind(val), have_kind = 1;
        else die("unknown option %s", opt);
    }
    errno = 0;
    if (!o.root || o.report_fd < 0 || !have_kind || i + 1 >= argc || o.nth < 1 || o.execs < 1 ||
        (!o.kill && o.resume_fd < 0))
        die("usage: --root DIR --report FD [--resume FD] [--kill] [--exit] [--execs N] [--nth N] "
            "--at SYSCALL [--path GLOB] -- COMMAND ARGS...");
    signal(SIGPIPE, SIG_IGN);
    pid_t pid = fork();
    if (pid < 0) die("fork");
    if (pid == 0) {
        close(o.report_fd);
        if (o.resume_fd >= 0) close(o.resume_fd);
        if (ptrace(PTRACE_TRACEME, 0, NULL, NULL) != 0) die("PTRACE_TRACEME");
        raise(SIGSTOP);
        execv(argv[i + 1], &argv[i + 1]);
        die("exec %s", argv[i + 1]);
    }
    return trace(&o, pid);
#endif
}
