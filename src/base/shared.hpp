// Small state and helpers every subsystem shares.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "result.hpp"

// Whether the terminal runs a serial console login; unknown after "Failed to open inittab." when
// "/etc/inittab" is unreadable.
enum class ConsoleMode { serial_login = 1, no_serial_login = 2, unknown = 9 };
[[nodiscard]] ConsoleMode get_mode();

// The text after the last "/", or the whole text when it has none.
[[nodiscard]] std::string base_name(const std::string& path);

// The text up to and including the last "/", or "" when it has none.
[[nodiscard]] std::string dir_part(const std::string& path);

// The group that shares what is installed under a common name: the application user's primary
// group for its own name, none for any other; 9 after "FATAL: Failed to obtain user information."
// when that account cannot be read.
[[nodiscard]] Result<std::optional<gid_t>> app_group_for(const std::string& cn);

// A common name as the system uses it: cut at the first "/".
[[nodiscard]] std::string cut_at_slash(std::string cn);

[[nodiscard]] inline bool starts_with(const std::string& s, const char* prefix) {
    return s.rfind(prefix, 0) == 0;
}
