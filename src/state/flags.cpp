// Restore-point, factory and wipe requests: a kernel flag that the platform acts on at the next
// start.
#include <syslog.h>

#include <cstdio>

#include "base/caller.hpp"
#include "base/paths.hpp"
#include "state/handlers.hpp"
#include "system/flag.hpp"
#include "system/tools.hpp"

namespace {

struct FlagRequest {
    const char* name;
    const char* path;
    const char* done;
    // The wipe request's failure line has always read "Error- %d"; the others "Error - %d".
    const char* error_word;
    bool reboot;
};

// The request is logged before the caller test, so refused requests leave a trace too.
ExitStatus flag_request(const FlagRequest& r) {
    syslog(LOG_INFO, "Request for %s", r.name);
    if (ExitStatus st = caller_check(CallerRule::root_or_app); st != ST_OK) {
        syslog(LOG_INFO, "Failed to process %s request. Access denied", r.name);
        return st;
    }
    switch (set_kernel_flag(r.path)) {
        case FlagResult::open_failed:
            std::printf("FATAL: Failed to open %s flag\n", r.name);
            syslog(LOG_INFO, "Failed to process %s request. Failed to open %s flag", r.name,
                   r.name);
            return ST_FAILURE;
        case FlagResult::write_failed:
            std::printf("FATAL: Failed to set %s flag\n", r.name);
            syslog(LOG_INFO, "Failed to process %s request. %s %d", r.name, r.error_word,
                   ST_FAILURE);
            return ST_FAILURE;
        case FlagResult::set:
            break;
    }
    std::puts(r.done);
    if (r.reboot) {
        sys_reboot();
    }
    return ST_OK;
}

}  // namespace

ExitStatus cmd_make_restore() {
    return flag_request({"make_restore", paths::flag_make_restore,
                         "Make restore point flag set. Reboot to commit.", "Error -", false});
}

ExitStatus cmd_make_factory() {
    return flag_request({"make_factory", paths::flag_make_factory,
                         "Make factory restore point flag set. Reboot to commit.", "Error -",
                         false});
}

ExitStatus cmd_wipe() {
    return flag_request(
        {"wipe", paths::flag_wipe, "Wipe flag set. Rebooting to commit...", "Error-", true});
}
