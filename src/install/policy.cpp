// Where a signer may install, and who may remove or rename an installed file.
#include "install/policy.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string_view>

#include "base/caller.hpp"
#include "base/paths.hpp"
#include "base/shared.hpp"
#include "verify/signature.hpp"

namespace {

ExitStatus invalid_destination(const char* dest) {
    std::printf("Invalid destination path: %s\n", dest);
    return ST_BAD_PATH;
}

}  // namespace

ExitStatus file_install_verify(const char* source, const char* dest, const std::string& cn) {
    const std::string d(dest);
    if (d.find('/') == std::string::npos) {
        return ST_BAD_PATH;
    }
    const std::string signer_dir = std::string(paths::usr_local) + cn + "/";
    const bool in_shared = starts_with(d, paths::shared_area);
    const bool in_signer = starts_with(d, signer_dir.c_str());
    if (!in_shared && !in_signer) {
        return invalid_destination(dest);
    }
    if (starts_with(d, paths::cert_store)) {
        return invalid_destination(dest);
    }
    const std::string full = install_full_path(source, d);
    const std::string area = in_signer ? signer_dir : std::string(paths::shared_area);
    if (path_has_bad_component(d) || !path_stays_inside(full, area)) {
        return invalid_destination(dest);
    }
    if (path_exists(full.c_str())) {
        std::printf("Destination file already exists: %s\n", full.c_str());
        return ST_EXISTS;
    }
    return ST_OK;
}

int cmd_file_install_check(int /*argc*/, char** argv) {
    SignerResult signer = file_verify(argv[2]);
    if (!signer.verified()) {
        return signer.status;
    }
    if (ExitStatus st = file_install_verify(argv[2], argv[3], signer.cn); st != ST_OK) {
        return st;
    }
    std::puts("Signed file can be installed.");
    return ST_OK;
}

ExitStatus file_access_verify(const char* path, int& is_cert, std::string& resolved) {
    if (!caller_access(path, F_OK)) {
        std::printf("Invalid file: %s\n", path);
        return ST_BAD_ARGUMENT;
    }
    std::optional<std::string> real = resolve_path(path);
    if (!real) {
        std::printf("Failed to obtain absolute path: %s\n", path);
        return ST_FAILURE;
    }
    if (!starts_with(*real, paths::usr_local)) {
        std::printf("Invalid path: %s\n", real->c_str());
        return ST_BAD_PATH;
    }
    is_cert = starts_with(*real, paths::cert_store) ? 1 : 0;
    struct stat st {};
    if (lstat(real->c_str(), &st) != 0) {
        std::puts("Failed to obtain file information.");
        return ST_FAILURE;
    }
    const gid_t gid = caller().gid;
    if (gid == 0 || (st.st_uid == 0 && st.st_gid == gid)) {
        resolved = *real;
        return ST_OK;
    }
    std::printf("Access denied: %s.\n", real->c_str());
    return ST_ACCESS_DENIED;
}

ExitStatus file_rename_verify(const char* source, const char* new_name) {
    std::optional<std::string> real = resolve_path(source);
    if (!real) {
        std::printf("Failed to obtain absolute path: %s\n", source);
        return ST_FAILURE;
    }
    const std::string source_dir = dir_part(*real);
    if (path_exists(new_name)) {
        std::printf("Invalid destination file: %s\n", new_name);
        return ST_BAD_PATH;
    }
    const std::string new_dir = dir_part(new_name);
    if (new_dir.empty()) {
        return ST_FAILURE;
    }
    if (new_dir != source_dir) {
        std::printf("Invalid destination path: %s\n", new_name);
        return ST_BAD_PATH;
    }
    return ST_OK;
}
