// Temporary install, remove and rename handlers; the real ones replace these weak definitions.
#include "base/caller.hpp"
#include "install/handlers.hpp"

__attribute__((weak)) int cmd_file_install(int, char**) {
    return not_implemented(CallerRule::anyone);
}
__attribute__((weak)) int cmd_file_remove(int, char**) {
    return not_implemented(CallerRule::anyone);
}
__attribute__((weak)) int cmd_file_rename(int, char**) {
    return not_implemented(CallerRule::anyone);
}
