// Image and operating-system commands whose operations are not built yet; their caller rules
// and the update request's log lines already hold.
#include <syslog.h>

#include "base/caller.hpp"
#include "install/handlers.hpp"

int cmd_image_install_check(int, char**) { return not_implemented(CallerRule::root_or_app); }
int cmd_image_install(int, char**) { return not_implemented(CallerRule::root_or_app); }

int cmd_os_update(int, char**) {
    syslog(LOG_INFO, "Request for os_update");
    if (!caller_allowed(CallerRule::root_or_app)) {
        syslog(LOG_INFO, "failed to process os_update request. Access denied");
    }
    return not_implemented(CallerRule::root_or_app);
}
