/* Runs a command as its own child and reports the child's peak resident memory, so that the
 * memory of whoever started us (a Python harness, say) is not counted with it.
 *
 *   peak_rss <program> [args...]   prints "peak_rss <KiB>" on standard error last */
#include <stdio.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

int main(int argc, char **argv) {
    if (argc < 2) return 127;
    pid_t pid = fork();
    if (pid < 0) return 127;
    if (pid == 0) {
        execv(argv[1], argv + 1);
        _exit(127);
    }
    int status = 0;
    struct rusage usage;
    if (wait4(pid, &status, 0, &usage) != pid) return 127;
    fprintf(stderr, "peak_rss %ld\n", usage.ru_maxrss);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
