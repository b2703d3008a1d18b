// Running the platform's tools as children, and the wrappers over them.
#include "system/tools.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/caller.hpp"
#include "base/fd.hpp"
#include "base/io.hpp"
#include "base/output.hpp"
#include "base/paths.hpp"
#include "base/run_lock.hpp"
#include "base/status.hpp"

namespace {

// The run ignores the signals a caller could use against it (D4); a tool must not inherit that
// through exec, nor the mask, so it stops and dies like any program.
void child_default_signals() {
    struct sigaction dfl {};
    dfl.sa_handler = SIG_DFL;
    for (int sig = 1; sig < NSIG; ++sig) {
        (void)sigaction(sig, &dfl, nullptr);
    }
    sigset_t none;
    sigemptyset(&none);
    (void)sigprocmask(SIG_SETMASK, &none, nullptr);
}

// Where a tool's standard output goes: into the held output after our own lines (neither field
// set), onto a descriptor of ours, or into a text its caller reads.
struct ToolStdout {
    int fd = -1;
    std::string* text = nullptr;
};

// Whether the tool works on what runs share, as every tool but the last step's does.
enum class ToolWork { shared, last_step };

// The descriptors a tool starts with: /dev/null to read, and our pipes (or a descriptor of ours)
// to write to. Never the caller's: a caller who reads nothing must not stop a tool while this run
// holds the lock (D22).
struct ChildEnds {
    UniqueFd in;
    UniqueFd out_read;
    UniqueFd out_write;
    UniqueFd err_read;
    UniqueFd err_write;
};

std::optional<ChildEnds> child_ends(const ToolStdout& out) {
    ChildEnds ends;
    ends.in.reset(::open(paths::dev_null, O_RDONLY | O_CLOEXEC));
    int fds[2];
    if (!ends.in || pipe2(fds, O_CLOEXEC) != 0) {
        return std::nullopt;
    }
    ends.err_read.reset(fds[0]);
    ends.err_write.reset(fds[1]);
    if (out.fd < 0) {
        if (pipe2(fds, O_CLOEXEC) != 0) {
            return std::nullopt;
        }
        ends.out_read.reset(fds[0]);
        ends.out_write.reset(fds[1]);
    }
    return ends;
}

// Forks and execs the tool on the given descriptors 0 to 2. The child sees no other descriptor,
// since everything we open is close-on-exec, and the process's own environment, which is already
// the fixed one (D5). -1 when the fork failed.
pid_t spawn(const char* path, const std::vector<const char*>& argv, int in, int out, int err) {
    std::vector<char*> args;
    args.reserve(argv.size() + 1);
    for (const char* a : argv) {
        args.push_back(const_cast<char*>(a));
    }
    args.push_back(nullptr);

    const pid_t pid = fork();
    if (pid == 0) {
        child_default_signals();
        if (dup2(in, STDIN_FILENO) < 0 || dup2(out, STDOUT_FILENO) < 0 ||
            dup2(err, STDERR_FILENO) < 0) {
            _exit(ST_FAILURE);
        }
        execv(path, args.data());
        _exit(ST_FAILURE);
    }
    return pid;
}

// Takes what one ready pipe holds to where it goes: the captured text when there is one, else the
// program's own output for that stream. The pipe is done at its end or on a read error.
void take_ready(pollfd& pipe, int stream, std::string* text) {
    char buf[io_block * 4];
    const ssize_t n = read(pipe.fd, buf, sizeof buf);
    if (n < 0 && errno == EINTR) {
        return;
    }
    if (n <= 0) {
        pipe.fd = -1;
    } else if (text != nullptr) {
        text->append(buf, static_cast<std::size_t>(n));
    } else {
        output_append(stream, buf, static_cast<std::size_t>(n));
    }
}

// Reads both pipes while the tool writes them, so a tool that says much never blocks on a full
// pipe, until the tool and whatever it started have closed them.
void collect(UniqueFd out_read, UniqueFd err_read, std::string* text) {
    pollfd fds[2] = {{out_read.get(), POLLIN, 0}, {err_read.get(), POLLIN, 0}};
    while (fds[0].fd >= 0 || fds[1].fd >= 0) {
        if (poll(fds, 2, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        if (fds[0].fd >= 0 && fds[0].revents != 0) {
            take_ready(fds[0], STDOUT_FILENO, text);
        }
        if (fds[1].fd >= 0 && fds[1].revents != 0) {
            take_ready(fds[1], STDERR_FILENO, nullptr);
        }
    }
}

// 0 only when the child exited normally with code 0.
ExitStatus wait_child(pid_t pid) {
    int status = 0;
    pid_t r;
    do {
        r = waitpid(pid, &status, 0);
    } while (r < 0 && errno == EINTR);
    return r == pid && status == 0 ? ST_OK : ST_FAILURE;
}

// The one tool runner. Nothing could be started (no pipe, no child): on_fork_failure decides
// whether that is the wrapper's 9 (nullopt here) or the end of the program.
std::optional<ExitStatus> run_tool(const char* path, const std::vector<const char*>& argv,
                                   ForkFailure on_fork_failure, ToolStdout out = {},
                                   ToolWork work = ToolWork::shared) {
    if (work == ToolWork::shared) {
        shared_work();
    }
    std::optional<ChildEnds> ends = child_ends(out);
    const pid_t pid =
        ends ? spawn(path, argv, ends->in.get(), out.fd >= 0 ? out.fd : ends->out_write.get(),
                     ends->err_write.get())
             : -1;
    if (pid < 0) {
        if (on_fork_failure == ForkFailure::end_program) {
            // Nothing else is owed to anyone, but the lines already printed are the caller's.
            output_release();
            _exit(ST_FAILURE);
        }
        return std::nullopt;
    }
    ends->in.reset();
    ends->out_write.reset();
    ends->err_write.reset();
    collect(std::move(ends->out_read), std::move(ends->err_read), out.text);
    return wait_child(pid);
}

}  // namespace

ExitStatus sys_run_tool(const char* path, const std::vector<const char*>& argv,
                        ForkFailure on_fork_failure) {
    return run_tool(path, argv, on_fork_failure).value_or(ST_FAILURE);
}

bool sys_tool_started_into(const char* path, const std::vector<const char*>& argv, int out) {
    return run_tool(path, argv, ForkFailure::return_failure, {out, nullptr}).has_value();
}

ExitStatus sys_adduser(const char* user) {
    // Anything already at the home path, even a dangling link, keeps adduser from making another
    // home directory there.
    const std::string home = std::string(paths::home_prefix) + user;
    struct stat st {};
    std::vector<const char*> argv = {"adduser", "-D"};
    if (lstat(home.c_str(), &st) == 0) {
        argv.push_back("-H");
    }
    // The application user always gets the same user ID, whoever creates it.
    if (std::string_view(user) == ids::app_user_name) {
        argv.push_back("-u500");
    }
    argv.push_back(user);
    return sys_run_tool(paths::tool_adduser, argv, ForkFailure::return_failure);
}

ExitStatus sys_passwd(const char* option, const char* user) {
    return sys_run_tool(paths::tool_passwd, {"passwd", option, user}, ForkFailure::return_failure);
}

void sys_reboot() {
    // The reboot is a run's last step: the lock is given back and our lines reach the caller
    // before the system goes down (D22). Whatever the tool says, the caller carries on and
    // finishes.
    output_release();
    (void)run_tool(paths::tool_reboot, {"reboot"}, ForkFailure::end_program, {},
                   ToolWork::last_step);
}

ExitStatus sys_mount(const char* type, const char* options, const char* device,
                     const char* mount_point) {
    return sys_run_tool(paths::tool_mount, {"mount", "-t", type, "-o", options, device, mount_point},
                        ForkFailure::end_program);
}

ExitStatus sys_umount(const char* mount_point, const char* option) {
    return sys_run_tool(paths::tool_umount, {"umount", mount_point, option}, ForkFailure::end_program);
}

ExitStatus sys_fsck(const char* image, const char* option) {
    if (option == nullptr) {
        return sys_run_tool(paths::tool_fsck, {"fsck.vfat", image}, ForkFailure::end_program);
    }
    return sys_run_tool(paths::tool_fsck, {"fsck.vfat", option, image}, ForkFailure::end_program);
}

ExitStatus sys_nvram_set(const char* key, const char* value) {
    // Nothing is escaped: the tool receives the pair as one argument, not through a shell.
    const std::string assignment = std::string(key).append("=").append(value);
    return sys_run_tool(paths::tool_nvram, {"nvram", "set", assignment.c_str()},
                        ForkFailure::return_failure);
}

ExitStatus sys_nvram_commit() {
    return sys_run_tool(paths::tool_nvram, {"nvram", "commit"}, ForkFailure::return_failure);
}

Result<std::optional<std::string>> sys_nvram_get(const char* key) {
    std::string output;
    // Its status says nothing the output does not: a value is what it printed. A tool that could
    // not be executed prints nothing, exactly like a key that holds nothing.
    if (!run_tool(paths::tool_nvram, {"nvram", "get", key}, ForkFailure::return_failure,
                  {-1, &output})) {
        return ST_FAILURE;
    }
    if (output.empty()) {
        return std::optional<std::string>();
    }
    const std::size_t end = output.find('\n');
    if (end != std::string::npos) {
        output.resize(end + 1);
    }
    return std::optional<std::string>(std::move(output));
}

ExitStatus sys_chown(const char* path, uid_t uid, gid_t gid) {
    shared_work();
    if (chown(path, uid, gid) != 0) {
        std::printf("Failed change ownership on %s.\n", path);
        return ST_FAILURE;
    }
    return ST_OK;
}

ExitStatus sys_chmod(const char* path, mode_t mode) {
    shared_work();
    if (chmod(path, mode) != 0) {
        std::printf("Failed change permissions on %s.\n", path);
        return ST_FAILURE;
    }
    return ST_OK;
}

ExitStatus set_led_permissions(const char* dir) {
    // The application's group drives the LED; others must not.
    constexpr mode_t led_mode = 0660;
    for (const char* attribute : {"/brightness", "/delay_on", "/delay_off"}) {
        const std::string path = std::string(dir) + attribute;
        if (ExitStatus st = sys_chown(path.c_str(), ids::root, ids::app_group); st != ST_OK) {
            return st;
        }
        if (ExitStatus st = sys_chmod(path.c_str(), led_mode); st != ST_OK) {
            return st;
        }
    }
    return ST_OK;
}
