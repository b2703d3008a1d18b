// The acquirer ID rule shared by every KBPK and key command.
#include "keys/acquirer.hpp"

#include <cerrno>
#include <cstdlib>

#include "base/caller.hpp"

std::optional<int> acquirer_id_parse(const char* text, uid_t caller_uid) {
    errno = 0;
    char* end = nullptr;
    const long value = std::strtol(text, &end, 0);
    if (errno != 0 || end == nullptr || *end != '\0') {
        return std::nullopt;
    }
    // Taken as unsigned, so a negative number is out of range too.
    if (static_cast<unsigned long>(value) > static_cast<unsigned long>(acquirer_max)) {
        return std::nullopt;
    }
    // Acquirer 0 also protects the terminal key: only root may name it.
    if (value == 0 && caller_uid != ids::root) {
        return std::nullopt;
    }
    return static_cast<int>(value);
}

std::optional<int> acquirer_id(const char* text) {
    return acquirer_id_parse(text, caller().uid);
}

Result<int> acquirer_command_start(const char* id_text) {
    if (ExitStatus st = caller_check(CallerRule::root_or_app); st != ST_OK) {
        return st;
    }
    std::optional<int> parsed = acquirer_id(id_text);
    if (!parsed) {
        return ST_BAD_ARGUMENT;
    }
    return *parsed;
}
