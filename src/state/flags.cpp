// Restore-point, factory and wipe requests.
#include <syslog.h>

#include "base/caller.hpp"
#include "state/handlers.hpp"

namespace {

// The request is logged before the caller test, so refused requests leave a trace too.
int flag_request(const char* request, const char* failure_prefix) {
    syslog(LOG_INFO, "Request for %s", request);
    if (!caller_allowed(CallerRule::root_or_app)) {
        syslog(LOG_INFO, "%s Access denied", failure_prefix);
    }
    return not_implemented(CallerRule::root_or_app);
}

}  // namespace

int cmd_make_factory(int, char**) {
    return flag_request("make_factory", "Failed to process make_factory request.");
}

int cmd_make_restore(int, char**) {
    return flag_request("make_restore", "Failed to process make_restore request.");
}

int cmd_wipe(int, char**) { return flag_request("wipe", "Failed to process wipe request."); }
