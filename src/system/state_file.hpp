// The program's own files outside /usr/local/: each write is a new root-owned file renamed over
// its name, and only what the program itself left there counts as its state (D3, D19).
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/fd.hpp"
#include "base/result.hpp"
#include "base/status.hpp"

// What the program's state files have always been given: "w" under the umask of 022.
inline constexpr mode_t state_file_mode = 0644;

// A new file beside its final name, under a fresh name nobody could have prepared (created
// exclusively, never through a link, in the directory held open, itself no link), owned by root
// with the given mode. Until commit() the final name keeps what it had; a file never committed is removed.
class StateFile {
public:
    StateFile(const std::string& path, mode_t mode);
    ~StateFile();
    StateFile(const StateFile&) = delete;
    StateFile& operator=(const StateFile&) = delete;

    [[nodiscard]] bool valid() const { return fd_.valid(); }
    [[nodiscard]] int fd() const { return fd_.get(); }

    // Puts the file on disk and renames it over the final name; whatever was planted there (a
    // file, link or FIFO) is replaced, not written through. False leaves the final name as it was.
    [[nodiscard]] bool commit();

private:
    UniqueFd dir_;
    std::string name_;
    std::string temp_;
    UniqueFd fd_;
};

// Replaces the state file at path with exactly these bytes. ST_OK or ST_FAILURE; prints nothing.
[[nodiscard]] ExitStatus state_file_replace(const std::string& path,
                                            std::span<const std::uint8_t> bytes,
                                            mode_t mode = state_file_mode);

// Whether anything is at path, judged with root's rights whoever asks (D3). A presence test by
// name, made without the run lock (D22): where a command reads the caller's file after it, the
// presence it acts on is judged again once the lock is held.
[[nodiscard]] bool state_file_exists(const std::string& path);

using StateBytes = std::optional<std::vector<std::uint8_t>>;

// The whole content of the state file at path, or nothing when the name holds none: only a
// regular file owned by root, reached without a link, is what the program wrote; a link, FIFO,
// directory or another user's file at the name is no state of the program's. Opened without
// blocking, so a FIFO can never hold the program. ST_FAILURE when it cannot be read whole.
[[nodiscard]] Result<StateBytes> state_file_read(const std::string& path);
