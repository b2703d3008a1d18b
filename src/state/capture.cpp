// Saving the security processor's rate-limit state and the kernel log into files.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "base/caller.hpp"
#include "base/fd.hpp"
#include "base/io.hpp"
#include "base/paths.hpp"
#include "keys/sapi.hpp"
#include "state/handlers.hpp"
#include "system/tools.hpp"

namespace {

// The program's own state: never written through a link someone planted there.
UniqueFd create_state_file(const char* path) {
    return UniqueFd(open(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0666));
}

// dmesg as the shell would find it along the fixed search path (D5).
std::string find_dmesg() {
    const std::string search = paths::child_path;
    for (std::size_t start = 0; start <= search.size();) {
        std::size_t end = search.find(':', start);
        if (end == std::string::npos) {
            end = search.size();
        }
        std::string candidate = search.substr(start, end - start) + "/dmesg";
        if (access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
        start = end + 1;
    }
    return "/bin/dmesg";
}

}  // namespace

int cmd_rate_limit_store(int, char**) {
    if (ExitStatus st = caller_check(CallerRule::root_only); st != ST_OK) {
        return st;
    }
    ProcRecord record;
    if (sapi_proc_read(record) != ST_OK) {
        return ST_FAILURE;
    }
    UniqueFd fd = create_state_file(paths::rate_limit_state);
    if (!fd || write_full(fd.get(), record.bytes.data(), record.length) != record.length) {
        return ST_FAILURE;
    }
    return ST_OK;
}

// The kernel log replaces the file whatever dmesg says of itself; only a child that cannot be
// started is a failure. The log is taken without a shell, with the same effect (D5).
int cmd_dmesg_store(int, char**) {
    if (ExitStatus st = caller_check(CallerRule::root_only); st != ST_OK) {
        return st;
    }
    UniqueFd out = create_state_file(paths::dmesg_file);
    if (!out) {
        return ST_OK;
    }
    const std::string dmesg = find_dmesg();
    if (sys_run_tool_into(dmesg.c_str(), {"dmesg"}, out.get(), ForkFailure::report) < 0) {
        std::puts("FATAL: Failed to execute dmesg");
        return ST_FAILURE;
    }
    return ST_OK;
}
