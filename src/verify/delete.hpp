// Deleting files: on the application file system under its own writable window, and rejected
// sources with the caller's rights (D2).
#pragma once

#include "base/result.hpp"
#include "base/status.hpp"
#include "verify/signers.hpp"

// Remounts writable, unlinks, remounts read-only. 0 when deleted, 9 otherwise (silent).
[[nodiscard]] ExitStatus file_unlink(const char* path);

// Deletes a rejected source and then its ".sig" with the caller's rights (D2). 0 when both went.
[[nodiscard]] ExitStatus file_sig_unlink(const char* path);

// Passes st on; a bad signature first takes the offered file and its signature with it, as far as
// the caller could delete them (D2). A refused deletion has printed its line and changes nothing.
[[nodiscard]] ExitStatus reject_on_bad_signature(ExitStatus st, const char* path);

// file_verify for a command that installs: a file whose signature is bad does not stay offered.
[[nodiscard]] Result<Signer> file_verify_or_reject(Signers& signers, const char* path);

// Deletes every regular file and symbolic link under "/usr/local/"; directories stay.
void clean_osfs();
