// Where a signer may install, and who may remove or rename an installed file.
#pragma once

#include <string>

#include "base/path_rules.hpp"
#include "base/status.hpp"

[[nodiscard]] ExitStatus file_install_verify(const char* source, const char* dest,
                                             const std::string& cn);
// Also gives the resolved path: the change is made on the file that was judged, whatever the
// caller does to the path's links meanwhile.
[[nodiscard]] ExitStatus file_access_verify(const char* path, int& is_cert, std::string& resolved);
[[nodiscard]] ExitStatus file_rename_verify(const char* source, const char* new_name);

int cmd_file_install_check(int argc, char** argv);
