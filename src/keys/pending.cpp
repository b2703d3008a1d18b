// Key commands whose operations are not built yet; their caller rules already hold.
#include "base/caller.hpp"
#include "keys/handlers.hpp"

int cmd_keys_init(int, char**) { return not_implemented(CallerRule::root_only); }
int cmd_kbpk_install_check(int, char**) { return not_implemented(CallerRule::root_or_app); }
int cmd_kbpk_install(int, char**) { return not_implemented(CallerRule::root_or_app); }
int cmd_kbpk_remove(int, char**) { return not_implemented(CallerRule::root_or_app); }
int cmd_kbpk_update_pci_pin(int, char**) { return not_implemented(CallerRule::root_or_app); }
int cmd_kbpk_verify_pci_pin(int, char**) { return not_implemented(CallerRule::root_or_app); }
int cmd_key_install_check(int, char**) { return not_implemented(CallerRule::root_or_app); }
int cmd_key_install(int, char**) { return not_implemented(CallerRule::root_or_app); }
