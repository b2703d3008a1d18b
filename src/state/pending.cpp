// Device-state commands whose operations are not built yet; their caller rules already hold.
#include "base/caller.hpp"
#include "state/handlers.hpp"

int cmd_msd_mount(int, char**) { return not_implemented(CallerRule::root_or_app); }
int cmd_msd_umount(int, char**) { return not_implemented(CallerRule::root_or_app); }
int cmd_update_dukpt_ksn(int, char**) { return not_implemented(CallerRule::root_only); }
