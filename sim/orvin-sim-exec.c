/* Starts a program inside a simulated terminal the way a local user would: chroot into the
 * terminal, become the given user with the given groups, umask and limits, with exactly the given
 * environment and descriptors. Run as root by the test harness.
 *
 * orvin-sim-exec --root DIR [--uid N] [--gid N] [--groups a,b,...] [--cwd DIR] [--umask OCT]
 *                [--rlimit NAME=SOFT:HARD]... [--close FD]... [--keep-fd N]... [--env K=V]...
 *                [--proc-from DIR] [--no-argv] -- PATH ARGV0 ARGS...
 *
 * The terminal's /proc holds plain files; --proc-from DIR links /proc/<pid> of the started program
 * to DIR/<pid> (a host procfs inside the terminal), since some runtimes (LeakSanitizer) read their
 * own process directory by number rather than through /proc/self.
 *
 * Any failed step ends with 127 and a line on stderr starting with "orvin-sim-exec:".
 */
#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#define MAX_ITEMS 256

static void die(const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    fputs("orvin-sim-exec: ", stderr);
    vfprintf(stderr, fmt, ap);
    if (errno) fprintf(stderr, ": %s", strerror(errno));
    fputc('\n', stderr);
    va_end(ap);
    exit(127);
}

static long number(const char* text, int base, const char* what) {
    char* end;
    errno = 0;
    long v = strtol(text, &end, base);
    if (errno || end == text || *end) {
        errno = 0;
        die("bad %s: %s", what, text);
    }
    return v;
}

static rlim_t limit_value(const char* text) {
    if (strcmp(text, "inf") == 0 || strcmp(text, "unlimited") == 0) return RLIM_INFINITY;
    return (rlim_t)number(text, 10, "limit");
}

struct rlimit_arg {
    int resource;
    struct rlimit value;
};

static struct rlimit_arg parse_rlimit(char* text) {
    static const struct {
        const char* name;
        int resource;
    } names[] = {{"FSIZE", RLIMIT_FSIZE}, {"NOFILE", RLIMIT_NOFILE}, {"STACK", RLIMIT_STACK},
                 {"CORE", RLIMIT_CORE},   {"CPU", RLIMIT_CPU},       {"AS", RLIMIT_AS},
                 {"DATA", RLIMIT_DATA}};
    char* eq = strchr(text, '=');
    char* colon = eq ? strchr(eq, ':') : NULL;
    if (!colon) die("bad --rlimit: %s", text);
    *eq = *colon = '\0';
    for (size_t i = 0; i < sizeof names / sizeof names[0]; i++)
        if (strcmp(text, names[i].name) == 0)
            return (struct rlimit_arg){names[i].resource, {limit_value(eq + 1), limit_value(colon + 1)}};
    die("unknown limit: %s", text);
    return (struct rlimit_arg){0};
}

static size_t parse_groups(char* list, gid_t* out) {
    size_t n = 0;
    for (char* tok = strtok(list, ","); tok; tok = strtok(NULL, ",")) {
        if (n == MAX_ITEMS) die("too many groups");
        out[n++] = (gid_t)number(tok, 10, "group");
    }
    return n;
}

int main(int argc, char** argv) {
    const char *root = NULL, *cwd = "/", *proc_from = NULL;
    long uid = 0, gid = -1, mask = -1;
    int no_argv = 0;
    gid_t groups[MAX_ITEMS];
    size_t ngroups = 0, nlimits = 0, nclose = 0, nkeep = 0, nenv = 0;
    struct rlimit_arg limits[MAX_ITEMS];
    int close_fds[MAX_ITEMS], keep_fds[MAX_ITEMS];
    char* env[MAX_ITEMS + 1];

    int i = 1;
    for (; i < argc && strcmp(argv[i], "--") != 0; i++) {
        const char* opt = argv[i];
        if (strcmp(opt, "--no-argv") == 0) {
            no_argv = 1;
            continue;
        }
        if (i + 1 >= argc) die("%s needs a value", opt);
        char* val = argv[++i];
        if (strcmp(opt, "--root") == 0) root = val;
        else if (strcmp(opt, "--uid") == 0) uid = number(val, 10, "uid");
        else if (strcmp(opt, "--gid") == 0) gid = number(val, 10, "gid");
        else if (strcmp(opt, "--groups") == 0) ngroups = parse_groups(val, groups);
        else if (strcmp(opt, "--cwd") == 0) cwd = val;
        else if (strcmp(opt, "--proc-from") == 0) proc_from = val;
        else if (strcmp(opt, "--umask") == 0) mask = number(val, 8, "umask");
        else if (nlimits == MAX_ITEMS || nclose == MAX_ITEMS || nkeep == MAX_ITEMS || nenv == MAX_ITEMS)
            die("too many options");
        else if (strcmp(opt, "--rlimit") == 0) limits[nlimits++] = parse_rlimit(val);
        else if (strcmp(opt, "--close") == 0) close_fds[nclose++] = (int)number(val, 10, "fd");
        else if (strcmp(opt, "--keep-fd") == 0) keep_fds[nkeep++] = (int)number(val, 10, "fd");
        else if (strcmp(opt, "--env") == 0) env[nenv++] = val;
        else die("unknown option %s", opt);
    }
    env[nenv] = NULL;
    if (!root || i + 2 >= argc) {
        errno = 0;
        die("usage: --root DIR [options] -- PATH ARGV0 ARGS...");
    }
    const char* path = argv[i + 1];
    char** child_argv = no_argv ? &argv[argc] : &argv[i + 2];
    if (gid < 0) gid = uid;

    errno = 0;
    if (chroot(root) != 0) die("chroot %s", root);
    if (chdir(cwd) != 0) die("chdir %s", cwd);
    if (proc_from) {
        char link[64], target[4096];
        snprintf(link, sizeof link, "/proc/%d", (int)getpid());
        snprintf(target, sizeof target, "%s/%d", proc_from, (int)getpid());
        unlink(link);
        errno = 0;
        if (symlink(target, link) != 0) die("symlink %s", link);
    }
    if (setgroups(ngroups, groups) != 0) die("setgroups");
    if (setgid((gid_t)gid) != 0) die("setgid %ld", gid);
    if (setuid((uid_t)uid) != 0) die("setuid %ld", uid);
    if (mask >= 0) umask((mode_t)mask);
    for (size_t k = 0; k < nlimits; k++)
        if (setrlimit(limits[k].resource, &limits[k].value) != 0) die("setrlimit");
    for (size_t k = 0; k < nkeep; k++) {
        int fd = open("/dev/null", O_RDWR);
        if (fd < 0) die("open /dev/null");
        if (fd != keep_fds[k] && (dup2(fd, keep_fds[k]) < 0 || close(fd) != 0))
            die("dup2 %d", keep_fds[k]);
    }
    for (size_t k = 0; k < nclose; k++) close(close_fds[k]);
    execve(path, child_argv, env);
    die("execve %s", path);
}
