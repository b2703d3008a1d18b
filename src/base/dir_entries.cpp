// Listing a directory's entries by name.
#include "base/dir_entries.hpp"

#include <dirent.h>

#include <cstring>

#include "base/owners.hpp"

namespace {

constexpr std::size_t max_entry_name = 256;

}  // namespace

std::optional<std::vector<std::string>> dir_entries(const char* dir) {
    DirPtr d(opendir(dir));
    if (!d) {
        return std::nullopt;
    }
    std::vector<std::string> names;
    while (const dirent* e = readdir(d.get())) {
        const char* name = e->d_name;
        if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0 ||
            std::strlen(name) > max_entry_name) {
            continue;
        }
        names.emplace_back(name);
    }
    return names;
}
