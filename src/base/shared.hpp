// Small state and helpers every subsystem shares.
#pragma once

#include <string>

// 1 while no production-signing certificate issued by "KeySigning" is installed: certificates are
// then verified against the RKI anchor. Only ever goes from 1 to 0 within a run.
extern int orvin_rki_ca;

// 1 when the terminal runs a serial console login, 2 when not, 9 when "/etc/inittab" is unreadable.
[[nodiscard]] int get_mode();

// The text after the last "/", or the whole text when it has none.
[[nodiscard]] std::string base_name(const std::string& path);

// The text up to and including the last "/", or "" when it has none.
[[nodiscard]] std::string dir_part(const std::string& path);

// A common name as the system uses it: cut at the first "/".
[[nodiscard]] std::string cut_at_slash(std::string cn);

[[nodiscard]] inline bool starts_with(const std::string& s, const char* prefix) {
    return s.rfind(prefix, 0) == 0;
}
