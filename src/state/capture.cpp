// Saving the security processor's rate-limit state and the kernel log into files.
#include <unistd.h>

#include <cstdio>
#include <string>

#include "base/caller.hpp"
#include "base/paths.hpp"
#include "device/sapi.hpp"
#include "state/handlers.hpp"
#include "system/state_file.hpp"
#include "system/tools.hpp"

namespace {

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
    return paths::tool_dmesg;
}

}  // namespace

ExitStatus cmd_rate_limit_store() {
    if (ExitStatus st = caller_check(CallerRule::root_only); st != ST_OK) {
        return st;
    }
    const Result<ProcRecord> record = sapi_proc_read();
    if (!record.ok()) {
        return record.status();
    }
    return state_file_replace(paths::rate_limit_state,
                              std::span(record->bytes).first(record->length));
}

// The kernel log replaces the file whatever dmesg says of itself; only a child that cannot be
// started is a failure. The log is taken without a shell, with the same effect (D5), into a fresh
// root-owned file that then replaces the old one (D19); a file that cannot be made or put in
// place is, as a failed redirection always was, no failure of the command.
ExitStatus cmd_dmesg_store() {
    if (ExitStatus st = caller_check(CallerRule::root_only); st != ST_OK) {
        return st;
    }
    StateFile out(paths::dmesg_file, state_file_mode);
    if (!out.valid()) {
        return ST_OK;
    }
    const std::string dmesg = find_dmesg();
    if (!sys_tool_started_into(dmesg.c_str(), {"dmesg"}, out.fd())) {
        std::puts("FATAL: Failed to execute dmesg");
        return ST_FAILURE;
    }
    (void)out.commit();
    return ST_OK;
}
