// Listing a directory's entries by name.
#pragma once

#include <optional>
#include <string>
#include <vector>

// The names in dir, in the order the file system gives them, without "." and ".." and without
// names longer than 256 bytes, which no file the program installs can have. Nothing when dir
// cannot be opened.
[[nodiscard]] std::optional<std::vector<std::string>> dir_entries(const char* dir);
