// Where a signer may install, and who may remove or rename an installed file.
#include "install/policy.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "base/caller.hpp"
#include "base/path_rules.hpp"
#include "base/paths.hpp"
#include "base/run_lock.hpp"
#include "base/shared.hpp"
#include "install/handlers.hpp"
#include "verify/signers.hpp"

namespace {

ExitStatus invalid_destination(const char* dest) {
    std::printf("Invalid destination path: %s\n", dest);
    return ST_BAD_PATH;
}

ExitStatus invalid_path(const std::string& resolved) {
    std::printf("Invalid path: %s\n", resolved.c_str());
    return ST_BAD_PATH;
}

// A final component that names an entry of its directory, not the directory or its parent.
bool plain_name(const std::string& name) {
    return !name.empty() && name != "." && name != "..";
}

// Opens, as the caller, the directory that holds path's last component, and proves which one it
// is: its resolved text must name the very directory held, or a component was swapped meanwhile.
Result<NamedEntry> hold_parent(const char* path) {
    const std::string text(path);
    const std::string parent = text.find('/') == std::string::npos ? "./" : dir_part(text);
    UniqueFd dir = caller_open_dir(parent.c_str());
    std::optional<std::string> real = resolve_path(parent);
    struct stat held {};
    struct stat named {};
    if (!dir || !real || fstat(dir.get(), &held) != 0 || stat(real->c_str(), &named) != 0 ||
        held.st_dev != named.st_dev || held.st_ino != named.st_ino) {
        std::printf("Failed to obtain absolute path: %s\n", path);
        return ST_FAILURE;
    }
    NamedEntry entry;
    entry.dir = std::move(dir);
    entry.dir_path = real->back() == '/' ? *real : *real + "/";
    entry.name = base_name(text);
    return entry;
}

}  // namespace

ExitStatus file_install_verify(const char* source, const char* dest, const std::string& cn) {
    // What /usr/local/ holds now decides the install that follows: no other run may change it in
    // between (D22). The offered file has been verified by now.
    shared_work();
    const std::string d(dest);
    if (ExitStatus st = dest_names_directory(d); st != ST_OK) {
        return st;
    }
    const std::string full = install_full_path(source, d);
    if (ExitStatus st = dest_text_verify(dest, full); st != ST_OK) {
        return st;
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

ExitStatus cmd_file_install_check(const char* source, const char* dest) {
    Signers signers;
    Result<Signer> signer = file_verify(signers, source);
    if (!signer.ok()) {
        return signer.status();
    }
    if (ExitStatus st = file_install_verify(source, dest, signer->cn); st != ST_OK) {
        return st;
    }
    std::puts("Signed file can be installed.");
    return ST_OK;
}

Result<NamedEntry> file_access_verify(const char* path) {
    if (!caller_access(path, F_OK)) {
        std::printf("Invalid file: %s\n", path);
        return ST_BAD_ARGUMENT;
    }
    // Where the path leads, as far as the caller could follow it: a refusal names that place,
    // however the path was spelt ("/usr/local/" is "/usr/local").
    std::optional<std::string> target;
    {
        AsCaller as;
        target = resolve_path(path);
    }
    if (!target) {
        std::printf("Failed to obtain absolute path: %s\n", path);
        return ST_FAILURE;
    }
    if (!starts_with(*target, paths::usr_local)) {
        return invalid_path(*target);
    }
    Result<NamedEntry> held = hold_parent(path);
    if (!held.ok()) {
        return held.status();
    }
    // The caller's path is resolved; from here on the entry held is judged for the change that
    // follows, and no other run may change it in between (D22).
    shared_work();
    NamedEntry& entry = held.value();
    const std::string location = entry.dir_path + entry.name;
    if (!starts_with(location, paths::usr_local)) {
        // The entry named lies outside, even if it leads inside (D15).
        return invalid_path(location);
    }
    // The held directory lies inside the application file system, which only this program
    // changes, so the text of the location still names the entry that was held.
    std::optional<std::string> real = resolve_path(location);
    if (!real) {
        std::printf("Failed to obtain absolute path: %s\n", path);
        return ST_FAILURE;
    }
    if (!starts_with(*real, paths::usr_local)) {
        return invalid_path(*real);
    }
    if (!plain_name(entry.name)) {
        entry.dir_path = dir_part(*real);
        entry.name = base_name(*real);
        entry.is_dir_path = true;
    }
    entry.is_cert = starts_with(location, paths::cert_store);
    struct stat st {};
    if (lstat(real->c_str(), &st) != 0) {
        std::puts("Failed to obtain file information.");
        return ST_FAILURE;
    }
    const gid_t gid = caller().gid;
    if (gid == 0 || (st.st_uid == 0 && st.st_gid == gid)) {
        return held;
    }
    std::printf("Access denied: %s.\n", real->c_str());
    return ST_ACCESS_DENIED;
}

ExitStatus file_rename_verify(const NamedEntry& source, const char* new_name) {
    if (ExitStatus st = dest_text_verify(new_name, new_name); st != ST_OK) {
        return st;
    }
    if (path_exists(new_name)) {
        std::printf("Invalid destination file: %s\n", new_name);
        return ST_BAD_PATH;
    }
    const std::string new_dir = dir_part(new_name);
    if (new_dir.empty()) {
        return ST_FAILURE;
    }
    // The held directory's resolved text, spelled exactly: it names a directory inside the
    // application file system that nobody else can move, so the new name lands beside the source.
    if (new_dir != source.dir_path) {
        std::printf("Invalid destination path: %s\n", new_name);
        return ST_BAD_PATH;
    }
    return ST_OK;
}
