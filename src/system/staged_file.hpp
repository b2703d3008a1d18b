// A file written under a fresh name in a staging directory of the program's own and renamed into
// its final place (D8, D28).
#pragma once

#include <string>

#include "base/fd.hpp"
#include "base/paths.hpp"

// Readers never see the file half written, and a run cut short leaves it only in the staging
// directory, where no later run reads or counts files by name. The name is created exclusively,
// so nothing there can redirect the write; if it is never published, it goes.
class StagedFile {
public:
    // dir is root's own, on the file system of the final place, and made if missing: by default
    // the application file system's staging directory, for which the writable window must be open.
    explicit StagedFile(const char* dir = paths::osfs_staging);
    ~StagedFile();
    StagedFile(const StagedFile&) = delete;
    StagedFile& operator=(const StagedFile&) = delete;

    [[nodiscard]] int fd() const { return fd_.get(); }
    [[nodiscard]] bool valid() const { return fd_.valid(); }

    // Renames the file into place; false leaves it staged (and removed on destruction).
    [[nodiscard]] bool publish(const std::string& final_path);

private:
    std::string dir_;
    bool made_dir_ = false;
    std::string name_;
    UniqueFd fd_;
};

// Removes what a run cut short left staged on the application file system, opening the writable
// window only when there is something to remove, so a plain run stays cheap (D28).
void osfs_staging_clear();
