// A file written under a fresh name in a staging directory of the program's own and renamed into
// its final place (D8, D28).
#include "system/staged_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "base/dir_entries.hpp"
#include "base/owners.hpp"
#include "system/osfs.hpp"

namespace {

constexpr mode_t staging_mode = 0700;

UniqueFd staging_open(const char* dir) {
    return UniqueFd(::open(dir, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

// Only root writes where the staging directories lie, so a wrong owner or mode is damage, not a
// plant: it is put right rather than refused. True with made when this call made it.
bool staging_ready(const char* dir, bool& made) {
    made = ::mkdir(dir, staging_mode) == 0;
    if (!made && errno != EEXIST) {
        return false;
    }
    const UniqueFd held = staging_open(dir);
    struct stat st {};
    if (!held || ::fstat(held.get(), &st) != 0) {
        return false;
    }
    if ((st.st_uid != 0 || st.st_gid != 0) && ::fchown(held.get(), 0, 0) != 0) {
        return false;
    }
    return (st.st_mode & 07777) == staging_mode || ::fchmod(held.get(), staging_mode) == 0;
}

}  // namespace

StagedFile::StagedFile(const char* dir) : dir_(dir) {
    if (!staging_ready(dir, made_dir_)) {
        return;
    }
    name_ = dir_;
    if (name_.empty() || name_.back() != '/') {
        name_ += '/';
    }
    name_ += "XXXXXX";
    fd_.reset(mkostemp(name_.data(), O_CLOEXEC));
}

// A staging directory this file made goes with it once empty, so a finished change leaves the
// tree exactly as its files make it.
StagedFile::~StagedFile() {
    if (fd_) {
        unlink(name_.c_str());
    }
    if (made_dir_) {
        (void)rmdir(dir_.c_str());
    }
}

bool StagedFile::publish(const std::string& final_path) {
    if (std::rename(name_.c_str(), final_path.c_str()) != 0) {
        return false;
    }
    fd_.reset();
    return true;
}

void osfs_staging_clear() {
    const UniqueFd held = staging_open(paths::osfs_staging);
    if (held) {
        const std::optional<std::vector<std::string>> names = dir_entries(paths::osfs_staging);
        if (names && names->empty()) {
            return;
        }
    } else if (errno == ENOENT) {
        return;
    }
    OsfsWritable writable(UnlockFailure::silent);
    if (!writable.ok()) {
        return;
    }
    if (held) {
        dir_remove_contents(held.get());
        (void)::rmdir(paths::osfs_staging);
    } else {
        // Anything but a directory at the name is no staging directory; the next install makes one.
        (void)::unlink(paths::osfs_staging);
    }
}
