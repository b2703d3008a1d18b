// A clean start for every run, whatever state the caller left the process in (D4, D5).
#include "front/process.hpp"

#include <fcntl.h>
#include <linux/close_range.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>

#include "base/paths.hpp"

namespace {

// Descriptors 0 to 2 must exist, or the first file the program opens would become its output.
void open_standard_descriptors() {
    for (int fd = 0; fd <= 2; ++fd) {
        if (fcntl(fd, F_GETFD) < 0) {
            int n = open(paths::dev_null, O_RDWR);
            if (n >= 0 && n != fd) {
                dup2(n, fd);
                close(n);
            }
        }
    }
}

void close_inherited_descriptors() {
    if (syscall(SYS_close_range, 3U, ~0U, 0U) != 0) {
        for (int fd = 3; fd < 65536; ++fd) {
            close(fd);
        }
    }
}

// A caller that lowered a limit could cut an install short half way.
void raise_limit(int resource, rlim_t wanted_hard) {
    rlimit lim{};
    if (getrlimit(resource, &lim) != 0) {
        return;
    }
    const rlim_t hard = std::max(lim.rlim_max, wanted_hard);
    rlimit raised{hard, hard};
    if (setrlimit(resource, &raised) != 0) {
        raised = {lim.rlim_max, lim.rlim_max};
        (void)setrlimit(resource, &raised);
    }
}

void reset_environment() {
    clearenv();
    (void)setenv("PATH", paths::child_path, 1);
}

}  // namespace

void process_harden() {
    open_standard_descriptors();
    close_inherited_descriptors();
    umask(022);
    (void)prctl(PR_SET_DUMPABLE, 0);
    rlimit no_core{0, 0};
    (void)setrlimit(RLIMIT_CORE, &no_core);
    raise_limit(RLIMIT_FSIZE, RLIM_INFINITY);
    raise_limit(RLIMIT_NOFILE, 1024 * 1024);
    raise_limit(RLIMIT_STACK, RLIM_INFINITY);
    signal(SIGCHLD, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    reset_environment();
}
