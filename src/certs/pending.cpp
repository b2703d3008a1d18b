// Temporary certificate handlers; the real ones replace these weak definitions.
#include "base/caller.hpp"
#include "certs/handlers.hpp"

__attribute__((weak)) int cmd_cert_install_check(int, char**) {
    return not_implemented(CallerRule::anyone);
}
__attribute__((weak)) int cmd_cert_install(int, char**) {
    return not_implemented(CallerRule::anyone);
}
