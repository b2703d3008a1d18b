// Temporary sweep handler; the real one replaces this weak definition.
#include "base/caller.hpp"
#include "verify/handlers.hpp"

__attribute__((weak)) int cmd_authenticate(int, char**) {
    return not_implemented(CallerRule::anyone);
}
