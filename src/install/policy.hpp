// Where a signer may install, and who may remove or rename an installed file.
#pragma once

#include <string>

#include "base/fd.hpp"
#include "base/path_rules.hpp"
#include "base/result.hpp"
#include "base/status.hpp"

// The entry a remove or rename acts on: the directory that holds it, resolved once and kept open,
// and its name there. Whatever happens to the caller's path afterwards, the change lands in this
// directory (D15).
struct NamedEntry {
    UniqueFd dir;
    std::string dir_path;  // resolved, with its final "/"
    std::string name;
    bool is_cert = false;  // lies in the certificate store, so it has no ".sig"
    // The path ended in "/", "." or "..": it names a directory, judged as the one it leads to
    // (dir_path and name are then that directory's), and a directory is never removed or renamed.
    bool is_dir_path = false;
};

[[nodiscard]] ExitStatus file_install_verify(const char* source, const char* dest,
                                             const std::string& cn);
// May the caller remove or rename what path names? The rule judges the file path resolves to; the
// entry given back is the one the caller named, a symbolic link as a link (D15).
[[nodiscard]] Result<NamedEntry> file_access_verify(const char* path);
// Does the new name stay in the directory that holds the source?
[[nodiscard]] ExitStatus file_rename_verify(const NamedEntry& source, const char* new_name);
