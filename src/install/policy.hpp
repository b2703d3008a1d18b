// Where a signer may install, and who may remove or rename an installed file.
#pragma once

#include <string>

#include "base/status.hpp"

// The installed path: a destination ending in "/" names a directory and gets the source's base
// name; any other destination is the path itself.
[[nodiscard]] std::string install_full_path(const std::string& source, const std::string& dest);

// True when dest has an empty, "." or ".." component (a final "/" is allowed) (D7).
[[nodiscard]] bool path_has_bad_component(const std::string& dest);

// True when the deepest existing entry on the way to full resolves, with the rest appended,
// inside area (D7).
[[nodiscard]] bool path_stays_inside(const std::string& full, const std::string& area);

// True when anything exists at path, a dangling link included.
[[nodiscard]] bool path_exists(const char* path);

[[nodiscard]] ExitStatus file_install_verify(const char* source, const char* dest,
                                             const std::string& cn);
// Also gives the resolved path: the change is made on the file that was judged, whatever the
// caller does to the path's links meanwhile.
[[nodiscard]] ExitStatus file_access_verify(const char* path, int& is_cert, std::string& resolved);
[[nodiscard]] ExitStatus file_rename_verify(const char* source, const char* new_name);

int cmd_file_install_check(int argc, char** argv);
