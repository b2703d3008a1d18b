// A clean start for every run, whatever state the caller left the process in (D4, D5).
#include "front/process.hpp"

#include <fcntl.h>
#include <linux/close_range.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "base/output.hpp"
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

// value: what the program sets. floor: the least a run can safely work with, where a hard limit
// cannot be raised (a process without CAP_SYS_RESOURCE): below it an allocation, an open, a
// tool's write or the CPU clock could fail the start-up check, which then wipes /usr/local/, or
// kill the run inside a writable window.
struct RunLimit {
    int resource;
    rlim_t value;
    rlim_t floor;
};

// Limits are inherited from whoever started us, and the kernel enforces them by killing or
// failing the process (and its tools) wherever it happens to be: inside the writable window,
// between a signature and its data file. So every limit that could cut a run short is the
// program's own. The fixed values are far above what a run needs.
constexpr rlim_t mib = rlim_t{1024} * 1024;
constexpr RunLimit run_limits[] = {
    {RLIMIT_CORE, 0, 0},
    {RLIMIT_CPU, RLIM_INFINITY, 600},
    {RLIMIT_FSIZE, RLIM_INFINITY, 1024 * mib},
    {RLIMIT_DATA, RLIM_INFINITY, 1024 * mib},
    {RLIMIT_AS, RLIM_INFINITY, 1024 * mib},
    {RLIMIT_STACK, 8 * mib, 1 * mib},
    {RLIMIT_NOFILE, 4096, 256},
    {RLIMIT_NPROC, RLIM_INFINITY, 0},
    {RLIMIT_RTTIME, RLIM_INFINITY, 0},
};

// As root the hard limit can be raised; where even that is refused, the soft limit goes as far
// as the hard one allows. False when the limit stays below the floor.
bool set_limit(const RunLimit& l) {
    const rlimit wanted{l.value, l.value};
    if (setrlimit(l.resource, &wanted) == 0) {
        return true;
    }
    rlimit current{};
    if (getrlimit(l.resource, &current) != 0) {
        return false;
    }
    const rlim_t best = l.value <= current.rlim_max ? l.value : current.rlim_max;
    const rlimit capped{best, current.rlim_max};
    return setrlimit(l.resource, &capped) == 0 ? best >= l.floor : current.rlim_cur >= l.floor;
}

// Signals the caller can still send or provoke (a terminal's keys and hang-up, a closed output
// pipe, its own limits) must not end a run inside a writable window. Nothing is caught, so a
// child's exec keeps only these ignored ones; the tool runner gives them back.
constexpr int ignored_signals[] = {SIGPIPE, SIGINT,  SIGQUIT, SIGHUP, SIGTSTP,
                                   SIGTTIN, SIGTTOU, SIGXFSZ, SIGXCPU};

// Whatever else the caller left ignored goes back to its default; handlers of a sanitizer
// runtime stay.
void reset_signals() {
    for (int sig = 1; sig < NSIG; ++sig) {
        struct sigaction old {};
        if (sigaction(sig, nullptr, &old) == 0 && old.sa_handler == SIG_IGN) {
            (void)signal(sig, SIG_DFL);
        }
    }
    for (int sig : ignored_signals) {
        (void)signal(sig, SIG_IGN);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

// What the caller's scheduling was (the lowest priority, the idle class, one CPU shared with its
// own busy processes, idle disk access) would stretch every step of the run, and while the run
// holds the lock, every other run's wait too (D22). The run gets the ordinary share.
void reset_scheduling() {
    const sched_param ordinary{};
    (void)sched_setscheduler(0, SCHED_OTHER, &ordinary);
    (void)setpriority(PRIO_PROCESS, 0, 0);
    cpu_set_t every_cpu;
    CPU_ZERO(&every_cpu);
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        CPU_SET(cpu, &every_cpu);
    }
    (void)sched_setaffinity(0, sizeof every_cpu, &every_cpu);
    // Class "none": disk access follows the CPU priority just set.
    constexpr int ioprio_who_process = 1;
    (void)syscall(SYS_ioprio_set, ioprio_who_process, 0, 0);
}

void reset_environment() {
    clearenv();
    (void)setenv("PATH", paths::child_path, 1);
}

}  // namespace

bool process_lift_limits() {
    bool enough = true;
    for (const RunLimit& l : run_limits) {
        enough = set_limit(l) && enough;
    }
    return enough;
}

void process_harden() {
    open_standard_descriptors();
    close_inherited_descriptors();
    umask(022);
    (void)prctl(PR_SET_DUMPABLE, 0);
    reset_signals();
    reset_scheduling();
    reset_environment();
    output_hold();
}
