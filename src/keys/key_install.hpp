// Working keys: a TR-31 key block goes to the device and comes back as a protected key file that
// the caller owns under "/home/".
#pragma once

#include <string>

#include "base/status.hpp"

// 0; 8 for a destination without "/" (silent), outside "/home/" or leading out of it (D7); 4 when
// the target exists. Changes nothing.
[[nodiscard]] ExitStatus key_install_verify(const char* source, const char* dest);

// Sends the key block, registers its digests, then creates the missing directories and the
// protected key file, owned by the caller with the TR-31 file's mode. 0, 8, 9, 12, 13 or 14.
[[nodiscard]] ExitStatus key_install_file(int id, const char* source, const char* dest);
