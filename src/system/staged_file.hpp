// A file written under a temporary name beside its final place and renamed in (D8).
#pragma once

#include <string>

#include "base/fd.hpp"

// Readers never see the file half written; if it is never published, the temporary name goes.
// The temporary name is created exclusively, so nothing planted there can redirect the write.
// There is no fsync: under "/usr/local/" the remount to read-only that ends every writable window
// writes the file system out, and a snapshot in the run's private directory is read back only by
// the same run.
class StagedFile {
public:
    explicit StagedFile(const std::string& final_path);
    ~StagedFile();
    StagedFile(const StagedFile&) = delete;
    StagedFile& operator=(const StagedFile&) = delete;

    [[nodiscard]] int fd() const { return fd_.get(); }
    [[nodiscard]] bool valid() const { return fd_.valid(); }

    // Renames the file into place; false leaves it staged (and removed on destruction).
    [[nodiscard]] bool publish(const std::string& final_path);

private:
    std::string name_;
    UniqueFd fd_;
};
