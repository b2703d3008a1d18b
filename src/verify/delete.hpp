// Deleting files: on the application file system under its own writable window, and rejected
// sources with the caller's rights (D2).
#pragma once

#include "base/status.hpp"

// Remounts writable, unlinks, remounts read-only. 0 when deleted, 9 otherwise (silent).
[[nodiscard]] ExitStatus file_unlink(const char* path);

// Deletes a rejected source and then its ".sig" with the caller's rights (D2). 0 when both went.
[[nodiscard]] ExitStatus file_sig_unlink(const char* path);

// Deletes every regular file and symbolic link under "/usr/local/"; directories stay.
void clean_osfs();
