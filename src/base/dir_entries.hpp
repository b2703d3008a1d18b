// Listing a directory's entries by name, and emptying a directory.
#pragma once

#include <optional>
#include <string>
#include <vector>

// The names in dir, in the order the file system gives them, without "." and ".." and without
// names longer than 256 bytes, which no file the program installs can have. Nothing when dir
// cannot be opened.
[[nodiscard]] std::optional<std::vector<std::string>> dir_entries(const char* dir);

// Empties the directory held by dir, entering subdirectories without following links. What
// cannot be removed stays.
void dir_remove_contents(int dir);
