// Installing, removing and renaming signed files on the application file system.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "base/caller.hpp"
#include "base/fd.hpp"
#include "base/io.hpp"
#include "base/shared.hpp"
#include "install/handlers.hpp"
#include "install/policy.hpp"
#include "install/staged_copy.hpp"
#include "system/osfs.hpp"
#include "system/staged_file.hpp"
#include "verify/delete.hpp"
#include "verify/signers.hpp"

namespace {

constexpr mode_t installed_sig_mode = 0740;
constexpr mode_t installed_data_add = 0755;
constexpr mode_t created_dir_mode = 0555;

// The installed pair belongs to root, and for the application user's signer to its group too, so
// the application can manage its own files.
ExitStatus set_owner_and_mode(const StagedFile& f, const std::optional<gid_t>& group, mode_t mode) {
    if (group && fchown(f.fd(), 0, *group) != 0) {
        std::puts("Failed to set user and group ID's.");
        return ST_FAILURE;
    }
    if (fchmod(f.fd(), mode) != 0) {
        std::printf("FATAL: Internal filesystem call failed.");
        return ST_FAILURE;
    }
    return ST_OK;
}

bool create_directories(std::string existing, const std::string& remainder) {
    std::size_t start = 0;
    for (std::size_t end; (end = remainder.find('/', start)) != std::string::npos; start = end + 1) {
        existing.push_back('/');
        existing.append(remainder, start, end - start);
        if (mkdir(existing.c_str(), created_dir_mode) != 0) {
            return false;
        }
    }
    return true;
}

// The data file, copied from the descriptor that was verified and digested again as it is
// copied, given its owner and mode, and made visible only while its bytes still carry the
// signature already in place (D6).
ExitStatus place_data_file(const CallerFile& source, const std::string& full,
                           const std::optional<gid_t>& group, const Signer& signer) {
    StagedFile data_file;
    const Result<Digest> digest = copy_held(source, full, data_file);
    if (!digest.ok()) {
        return digest.status();
    }
    // Permission bits only: a signed program never becomes a set-user-ID root one (D16).
    if (ExitStatus st =
            set_owner_and_mode(data_file, group, (source.mode & 0777) | installed_data_add);
        st != ST_OK) {
        return st;
    }
    if (ExitStatus st = check_staged(*digest, signer); st != ST_OK) {
        return st;
    }
    if (!data_file.publish(full)) {
        std::printf("FATAL: Internal filesystem call failed.");
        return ST_FAILURE;
    }
    return ST_OK;
}

// Installs the pair for the signer that file_verify found: the signature bytes it verified and a
// copy of the data, from the file it held, that must still carry them (D6, D17). Nothing of the
// caller's is looked up again: the copy reads no more than was verified, inside the writable
// window and under the run lock (D22).
ExitStatus file_install(const char* source, const char* dest, const Signer& signer,
                        const CallerFile& held) {
    const std::string& cn = signer.cn;
    const std::string d(dest);
    if (ExitStatus st = dest_names_directory(d); st != ST_OK) {
        return st;
    }
    const std::string full = install_full_path(source, d);
    const std::optional<PathSplit> parts = split_at_existing(full);
    if (!parts) {
        return ST_FAILURE;
    }
    const std::string full_sig = full + ".sig";

    const Result<std::optional<gid_t>> group = app_group_for(cn);
    if (!group.ok()) {
        return group.status();
    }

    OsfsWritable writable;
    if (!writable.ok()) {
        return ST_FAILURE;
    }
    if (!create_directories(parts->existing, parts->rest)) {
        return ST_FAILURE;
    }

    // The signature goes first, so a data file never exists without one. It is the one that was
    // verified, not whatever the caller's ".sig" holds by now (D17).
    StagedFile sig_file;
    if (ExitStatus st = write_signature(signer.sig, full_sig, sig_file); st != ST_OK) {
        return st;
    }
    if (ExitStatus st = set_owner_and_mode(sig_file, *group, installed_sig_mode); st != ST_OK) {
        return st;
    }
    if (!sig_file.publish(full_sig)) {
        std::printf("FATAL: Internal filesystem call failed.");
        return ST_FAILURE;
    }
    std::printf("Signature installed: %s\n", full_sig.c_str());

    if (ExitStatus st = place_data_file(held, full, *group, signer); st != ST_OK) {
        unlink(full_sig.c_str());
        return st;
    }
    std::printf("Data file installed: %s\n", full.c_str());
    return ST_OK;
}

}  // namespace

ExitStatus cmd_file_install(const char* source, const char* dest) {
    Signers signers;
    CallerFile held;
    Result<Signer> signer = file_verify(signers, source, &held);
    if (!signer.ok()) {
        return reject_on_bad_signature(signer.status(), source);
    }
    if (ExitStatus st = file_install_verify(source, dest, signer->cn); st != ST_OK) {
        return st;
    }
    if (ExitStatus st = file_install(source, dest, *signer, held); st != ST_OK) {
        // Bytes that changed under us after the check are as good as badly signed (D6).
        return reject_on_bad_signature(st, source);
    }
    std::puts("Signed file installed.");
    return ST_OK;
}

ExitStatus cmd_file_remove(const char* path) {
    Result<NamedEntry> entry = file_access_verify(path);
    if (!entry.ok()) {
        return entry.status();
    }
    if (entry->is_dir_path) {
        return ST_FAILURE;  // a directory is no file to remove
    }
    const int dir = entry->dir.get();
    const std::string sig = entry->name + ".sig";
    OsfsWritable writable;
    if (!writable.ok()) {
        return ST_FAILURE;
    }
    // Certificates have no signature; for signed files the signature goes first so that a file
    // never stays behind without it.
    if (!entry->is_cert && unlinkat(dir, sig.c_str(), 0) != 0) {
        return ST_FAILURE;
    }
    if (unlinkat(dir, entry->name.c_str(), 0) != 0) {
        return ST_FAILURE;
    }
    std::puts("File removed.");
    return ST_OK;
}

ExitStatus cmd_file_rename(const char* path, const char* new_path) {
    Result<NamedEntry> entry = file_access_verify(path);
    if (!entry.ok()) {
        return entry.status();
    }
    if (ExitStatus st = file_rename_verify(*entry, new_path); st != ST_OK) {
        return st;
    }
    if (entry->is_dir_path) {
        return ST_FAILURE;  // a directory is no file to rename
    }
    const int dir = entry->dir.get();
    const std::string new_name = base_name(new_path);
    OsfsWritable writable;
    if (!writable.ok()) {
        return ST_FAILURE;
    }
    if (!entry->is_cert &&
        renameat(dir, (entry->name + ".sig").c_str(), dir, (new_name + ".sig").c_str()) != 0) {
        return ST_FAILURE;
    }
    if (renameat(dir, entry->name.c_str(), dir, new_name.c_str()) != 0) {
        return ST_FAILURE;
    }
    std::puts("File renamed.");
    return ST_OK;
}
