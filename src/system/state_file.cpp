// The program's own files outside /usr/local/: each write is a new root-owned file renamed over
// its name, and only what the program itself left there counts as its state (D3, D19).
#include "system/state_file.hpp"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "base/caller.hpp"
#include "base/io.hpp"
#include "base/run_lock.hpp"
#include "base/shared.hpp"

namespace {

// Enough fresh names that only an exhausted directory, never a planted entry, stops a write.
constexpr int temp_name_attempts = 16;

std::string temp_name(const std::string& name) {
    std::array<std::uint8_t, 8> random{};
    if (getrandom(random.data(), random.size(), 0) != static_cast<ssize_t>(random.size())) {
        return {};
    }
    std::string out = name + ".";
    for (std::uint8_t b : random) {
        std::array<char, 3> hex{};
        std::snprintf(hex.data(), hex.size(), "%02x", static_cast<unsigned>(b));
        out += hex.data();
    }
    return out;
}

bool is_state_file(const struct stat& st) {
    return S_ISREG(st.st_mode) && st.st_uid == ids::root;
}

// The parent directory of an absolute path, without the final "/" that would make even
// O_NOFOLLOW follow a link there.
std::string parent_of(const std::string& path) {
    std::string dir = dir_part(path);
    while (dir.size() > 1 && dir.back() == '/') {
        dir.pop_back();
    }
    return dir.empty() ? "/" : dir;
}

// The directory a state file is written in, held; the state there is every run's (D22).
UniqueFd hold_state_dir(const std::string& path) {
    shared_work();
    return UniqueFd(
        ::open(parent_of(path).c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

}  // namespace

StateFile::StateFile(const std::string& path, mode_t mode)
    : dir_(hold_state_dir(path)), name_(base_name(path)) {
    if (!dir_ || name_.empty()) {
        return;
    }
    for (int i = 0; i < temp_name_attempts && !fd_; ++i) {
        temp_ = temp_name(name_);
        if (temp_.empty()) {
            return;
        }
        fd_ = UniqueFd(::openat(dir_.get(), temp_.c_str(),
                                O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!fd_ && errno != EEXIST) {
            return;
        }
    }
    if (fd_ && (::fchown(fd_.get(), ids::root, 0) != 0 || ::fchmod(fd_.get(), mode) != 0)) {
        (void)::unlinkat(dir_.get(), temp_.c_str(), 0);
        fd_.reset();
    }
}

StateFile::~StateFile() {
    if (fd_) {
        (void)::unlinkat(dir_.get(), temp_.c_str(), 0);
    }
}

bool StateFile::commit() {
    if (!fd_ || ::fsync(fd_.get()) != 0 ||
        ::renameat(dir_.get(), temp_.c_str(), dir_.get(), name_.c_str()) != 0) {
        return false;
    }
    fd_.reset();
    // The rename is done; a directory that cannot be synced still holds the new file.
    (void)::fsync(dir_.get());
    return true;
}

ExitStatus state_file_replace(const std::string& path, std::span<const std::uint8_t> bytes,
                              mode_t mode) {
    StateFile file(path, mode);
    if (!file.valid() || write_full(file.fd(), bytes.data(), bytes.size()) != bytes.size() ||
        !file.commit()) {
        return ST_FAILURE;
    }
    return ST_OK;
}

bool state_file_exists(const std::string& path) {
    // The real user is root by now (D1), so access() judges with root's rights.
    return ::access(path.c_str(), F_OK) == 0;
}

Result<StateBytes> state_file_read(const std::string& path) {
    shared_work();
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd) {
        // Nothing at the name, a link or a socket: none of them is the program's state.
        const bool not_state = errno == ENOENT || errno == ELOOP || errno == ENXIO;
        return not_state ? Result<StateBytes>(StateBytes{}) : Result<StateBytes>(ST_FAILURE);
    }
    struct stat st {};
    if (::fstat(fd.get(), &st) != 0) {
        return ST_FAILURE;
    }
    if (!is_state_file(st)) {
        return StateBytes{};
    }
    std::optional<std::vector<std::uint8_t>> bytes = read_whole(fd.get(), st.st_size);
    if (!bytes) {
        return ST_FAILURE;
    }
    return StateBytes{std::move(*bytes)};
}
