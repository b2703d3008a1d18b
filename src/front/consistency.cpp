// The start-up check every run goes through before a command runs.
#include "front/consistency.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "base/caller.hpp"
#include "base/paths.hpp"
#include "base/status.hpp"
#include "base/trust_anchor.hpp"
#include "certs/cert_restore.hpp"
#include "certs/cert_user.hpp"
#include "system/osfs.hpp"
#include "system/staged_file.hpp"
#include "system/walk.hpp"
#include "verify/delete.hpp"

namespace {

constexpr mode_t state_dir_mode = 0700;

constexpr const char* trust_anchors[] = {paths::anchor_bundle, paths::anchor_os, paths::anchor_rki};

// The tools the commands cannot do without, in the order they are reported missing.
constexpr const char* required_tools[] = {
    paths::tool_adduser,   paths::tool_passwd, paths::tool_deluser, paths::tool_reboot,
    paths::tool_nandwrite, paths::tool_mount,  paths::tool_umount,
};

// Any entry at the name will do; its existence is judged with root's rights, whoever asks (D3).
bool state_dir_ready() {
    struct stat st {};
    return lstat(paths::state_dir, &st) == 0 || mkdir(paths::state_dir, state_dir_mode) == 0;
}

bool trust_anchors_readable() {
    for (const char* anchor : trust_anchors) {
        if (!caller_access(anchor, R_OK)) {
            return false;
        }
    }
    return true;
}

// The anchor must match the installed production-signing certificate before anything is
// verified against it.
bool certificate_store_valid(ChainStore& chains) {
    trust_anchor.set(prod_sign_from_key_signing() ? Anchor::bundle : Anchor::rki);
    const auto step = [&chains](const char* path, const struct stat* /*st*/, int type) {
        return ftw_process_certs(chains, path, type);
    };
    return walk_tree(paths::cert_store, step) == ST_OK;
}

bool tools_present() {
    for (const char* tool : required_tools) {
        if (!caller_access(tool, X_OK)) {
            std::printf("Missing executable: %s\n", tool);
            return false;
        }
    }
    return true;
}

// A run cut short (power loss, a kill) may have left files staged or "/usr/local/" writable; both
// are put right before anything reads the tree, so what it left changes no later run (D28).
void osfs_recover() {
    osfs_staging_clear();
    if (osfs_writable()) {
        sys_lock_osfs();
    }
}

}  // namespace

Result<ChainStore> consistency_check() {
    osfs_recover();
    ChainStore chains;
    if (state_dir_ready() && trust_anchors_readable() && certificate_store_valid(chains) &&
        tools_present()) {
        return chains;
    }
    // The application file system can no longer be trusted: nothing on it may run.
    clean_osfs();
    std::puts("Consistency check failed.");
    return ST_FAILURE;
}
