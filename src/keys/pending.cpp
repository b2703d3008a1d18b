// Key commands whose operations are not built yet; their caller rules already hold.
#include "base/caller.hpp"
#include "keys/handlers.hpp"

int cmd_keys_init(int, char**) { return not_implemented(CallerRule::root_only); }
int cmd_key_install_check(int, char**) { return not_implemented(CallerRule::root_or_app); }
int cmd_key_install(int, char**) { return not_implemented(CallerRule::root_or_app); }
