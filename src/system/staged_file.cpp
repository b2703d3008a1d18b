// A file written under a temporary name beside its final place and renamed in (D8).
#include "system/staged_file.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

StagedFile::StagedFile(const std::string& final_path) : name_(final_path + ".XXXXXX") {
    fd_.reset(mkostemp(name_.data(), O_CLOEXEC));
}

StagedFile::~StagedFile() {
    if (fd_) {
        unlink(name_.c_str());
    }
}

bool StagedFile::publish(const std::string& final_path) {
    if (std::rename(name_.c_str(), final_path.c_str()) != 0) {
        return false;
    }
    fd_.reset();
    return true;
}
