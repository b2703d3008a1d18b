// Key commands whose operations are not built yet; their caller and acquirer ID rules already
// hold.
#include "base/caller.hpp"
#include "keys/acquirer.hpp"
#include "keys/handlers.hpp"

namespace {

int pending_key_command(const char* acquirer_text) {
    if (ExitStatus st = caller_check(CallerRule::root_or_app); st != ST_OK) {
        return st;
    }
    if (!acquirer_id(acquirer_text)) {
        return ST_BAD_ARGUMENT;
    }
    return not_implemented(CallerRule::root_or_app);
}

}  // namespace

int cmd_keys_init(int, char**) { return not_implemented(CallerRule::root_only); }
int cmd_key_install_check(int, char** argv) { return pending_key_command(argv[2]); }
int cmd_key_install(int, char** argv) { return pending_key_command(argv[2]); }
