// Temporary files outside /usr/local/: one root-only directory per run that nobody else can
// enter, so no name a local user plants in /tmp can redirect or block them (D19).
#include "system/private_tmp.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "base/dir_entries.hpp"
#include "base/fd.hpp"
#include "base/paths.hpp"

namespace {

constexpr mode_t private_tmp_mode = 0700;

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
        dir_remove_contents(dir.get());
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
