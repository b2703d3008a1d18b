// Temporary files outside /usr/local/: one root-only directory per run that nobody else can
// enter, so no name a local user plants in /tmp can redirect or block them (D19).
#include "system/private_tmp.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "base/fd.hpp"
#include "base/owners.hpp"
#include "base/paths.hpp"

namespace {

constexpr mode_t private_tmp_mode = 0700;

// Empties the directory held by dir, entering subdirectories without following links.
void remove_contents(int dir) {
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
            remove_contents(sub.get());
            (void)::unlinkat(dir, name.c_str(), AT_REMOVEDIR);
        }
    }
}

}  // namespace

PrivateTmp::PrivateTmp() {
    std::string name = paths::private_tmp_template;
    if (::mkdtemp(name.data()) == nullptr) {
        return;
    }
    if (::chmod(name.c_str(), private_tmp_mode) != 0) {
        (void)::rmdir(name.c_str());
        return;
    }
    dir_ = std::move(name);
}

PrivateTmp::~PrivateTmp() {
    if (dir_.empty()) {
        return;
    }
    UniqueFd dir(::open(dir_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (dir) {
        remove_contents(dir.get());
    }
    (void)::rmdir(dir_.c_str());
}

std::string PrivateTmp::path(std::string_view name) const {
    return dir_.empty() ? std::string() : dir_ + "/" + std::string(name);
}

std::string private_tmp_path(std::string_view name) {
    // One per run: made when first needed, gone when the program ends normally.
    static const PrivateTmp run_tmp;
    return run_tmp.path(name);
}
