// Running the platform's tools as children, and the wrappers over them.
#include "system/tools.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/caller.hpp"
#include "base/fd.hpp"
#include "base/io.hpp"
#include "base/output.hpp"
#include "base/paths.hpp"
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

// Forks and execs the tool; in the child, out (when valid) becomes its standard output. The child
// sees only descriptors 0 to 2, since everything we open is close-on-exec, and the process's own
// environment, which is already the fixed one (D5). -1 when the fork failed.
pid_t spawn(const char* path, const std::vector<const char*>& argv, int out) {
    std::vector<char*> args;
    args.reserve(argv.size() + 1);
    for (const char* a : argv) {
        args.push_back(const_cast<char*>(a));
    }
    args.push_back(nullptr);

    // Our own lines are printed in pieces; what we printed so far must come before the tool's.
    output_release();
    const pid_t pid = fork();
    if (pid == 0) {
        child_default_signals();
        if (out >= 0 && dup2(out, STDOUT_FILENO) < 0) {
            _exit(ST_FAILURE);
        }
        execv(path, args.data());
        _exit(ST_FAILURE);
    }
    return pid;
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

}  // namespace

ExitStatus sys_run_tool(const char* path, const std::vector<const char*>& argv,
                        ForkFailure on_fork_failure) {
    const pid_t pid = spawn(path, argv, -1);
    if (pid < 0) {
        if (on_fork_failure == ForkFailure::end_program) {
            // Output was flushed before the fork; nothing else is owed to anyone.
            _exit(ST_FAILURE);
        }
        return ST_FAILURE;
    }
    return wait_child(pid);
}

bool sys_tool_started_into(const char* path, const std::vector<const char*>& argv, int out) {
    const pid_t pid = spawn(path, argv, out);
    if (pid < 0) {
        return false;
    }
    (void)wait_child(pid);
    return true;
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
    // The system is going down; whatever the tool says, the caller carries on and finishes.
    (void)sys_run_tool(paths::tool_reboot, {"reboot"}, ForkFailure::end_program);
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
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return ST_FAILURE;
    }
    UniqueFd read_end(ends[0]);
    UniqueFd write_end(ends[1]);
    const pid_t pid = spawn(paths::tool_nvram, {"nvram", "get", key}, write_end.get());
    write_end.reset();
    if (pid < 0) {
        return ST_FAILURE;
    }
    // Read to the end so the tool never blocks on a full pipe. A tool that could not be executed
    // prints nothing, exactly like a key that holds nothing.
    std::string output = read_to_end(read_end.get());
    read_end.reset();
    // Its status says nothing the output does not: a value is what it printed.
    (void)wait_child(pid);
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
    if (chown(path, uid, gid) != 0) {
        std::printf("Failed change ownership on %s.\n", path);
        return ST_FAILURE;
    }
    return ST_OK;
}

ExitStatus sys_chmod(const char* path, mode_t mode) {
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
