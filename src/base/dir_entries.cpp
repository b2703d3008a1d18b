// Listing a directory's entries by name, and emptying a directory.
#include "base/dir_entries.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#include "base/fd.hpp"
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

void dir_remove_contents(int dir) {
    // The listing owns its own descriptor, so dir stays usable for the unlinks.
    const int listing = ::openat(dir, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (listing < 0) {
        return;
    }
    DirPtr d(::fdopendir(listing));
    if (!d) {
        ::close(listing);
        return;
    }
    while (const dirent* e = ::readdir(d.get())) {
        const std::string name = e->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        if (::unlinkat(dir, name.c_str(), 0) == 0) {
            continue;
        }
        UniqueFd sub(::openat(dir, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (sub) {
            dir_remove_contents(sub.get());
            (void)::unlinkat(dir, name.c_str(), AT_REMOVEDIR);
        }
    }
}
