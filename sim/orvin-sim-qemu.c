/* Stands at /usr/sbin/orvin-auth in a terminal that runs the program of another architecture
 * (Terminal with an emulated program): installed set-user-ID root, it hands itself over to the
 * user-mode emulator, which runs the real program with exactly the credentials, arguments,
 * environment and descriptors the caller gave. The kernel keeps this launcher's credentials
 * across the exec (real ID the caller's, effective and saved ID root, secure mode), and the
 * emulator passes them on to the program, so the program starts as it would from its own
 * set-user-ID bit.
 *
 *   <emulator> -L / -0 <argv[0]> <program> <argv[1]>...
 *
 * The emulator and the program lie in the terminal under /var/sim/emulated, the program's loader
 * and libraries under /usr/lib as on its own architecture (Terminal lays them out). "-L /" keeps
 * the emulator from redirecting any path the program opens to a library prefix. The emulator
 * would take settings from QEMU_* variables, which no caller of the real program can give it, so
 * they are not passed on.
 *
 * A failed exec ends with 127 and a line on stderr starting with "orvin-sim-qemu:".
 */
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#define EMULATED "/var/sim/emulated"

extern char** environ;

int main(int argc, char** argv) {
    /* The kernel makes an empty argument vector of a set-user-ID program one empty argument;
     * should it ever not, the program still sees an empty name. */
    const char* name = argc > 0 && argv[0] ? argv[0] : "";
    char** args = calloc((size_t)argc + 8, sizeof *args);
    char** env = calloc(1, sizeof *env);
    if (!args || !env) {
        fputs("orvin-sim-qemu: out of memory\n", stderr);
        return 127;
    }
    size_t n = 0;
    for (char** e = environ; *e; e++) {
        if (strncmp(*e, "QEMU_", 5) != 0) {
            char** grown = realloc(env, (n + 2) * sizeof *env);
            if (!grown) {
                fputs("orvin-sim-qemu: out of memory\n", stderr);
                return 127;
            }
            env = grown;
            env[n++] = *e;
        }
    }
    env[n] = NULL;

    size_t k = 0;
    args[k++] = "qemu";
    args[k++] = "-L";
    args[k++] = "/";
    args[k++] = "-0";
    args[k++] = (char*)name;
    args[k++] = EMULATED "/orvin-auth";
    for (int i = 1; i < argc; i++) args[k++] = argv[i];
    args[k] = NULL;
    execve(EMULATED "/qemu", args, env);
    fprintf(stderr, "orvin-sim-qemu: execve %s: %s\n", EMULATED "/qemu", strerror(errno));
    return 127;
}
