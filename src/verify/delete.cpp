// Deleting files: on the application file system under its own writable window, and rejected
// sources with the caller's rights (D2).
#include "verify/delete.hpp"

#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "base/caller.hpp"
#include "base/paths.hpp"
#include "base/status.hpp"
#include "system/osfs.hpp"
#include "system/walk.hpp"
#include "verify/signers.hpp"

namespace {

// Empties "/usr/local/" entry by entry; a file that will not go must not keep the others.
WalkStep ftw_delete_files(const char* path, const struct stat* /*st*/, int type) {
    if (type == FTW_F || type == FTW_SL || type == FTW_SLN) {
        (void)file_unlink(path);
    }
    return WalkStep::go_on;
}

}  // namespace

ExitStatus file_unlink(const char* path) {
    // The callers tell which deletion failed.
    OsfsWritable writable(UnlockFailure::silent);
    if (!writable.ok()) {
        return ST_FAILURE;
    }
    return unlink(path) == 0 ? ST_OK : ST_FAILURE;
}

ExitStatus file_sig_unlink(const char* path) {
    const std::string sig = std::string(path) + ".sig";
    // D2: the kernel deletes only what the caller could have deleted himself.
    if (!caller_unlink(path)) {
        std::printf("Failed to delete invalid data/executable: %s.\n", path);
        return ST_FAILURE;
    }
    if (!caller_unlink(sig.c_str())) {
        std::printf("Failed to delete invalid signature: %s.\n", sig.c_str());
        return ST_FAILURE;
    }
    return ST_OK;
}

ExitStatus reject_on_bad_signature(ExitStatus st, const char* path) {
    if (st == ST_BAD_SIGNATURE) {
        (void)file_sig_unlink(path);
    }
    return st;
}

Result<Signer> file_verify_or_reject(Signers& signers, const char* path) {
    Result<Signer> signer = file_verify(signers, path);
    (void)reject_on_bad_signature(signer.status(), path);
    return signer;
}

void clean_osfs() {
    // Whatever could not be walked or deleted stays; there is nobody left to report it to.
    (void)walk_tree(paths::usr_local, ftw_delete_files);
}
