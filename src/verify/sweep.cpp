// The start-up sweep: every file under "/usr/local/" keeps its place only with a valid signature.
#include <fcntl.h>
#include <ftw.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "base/caller.hpp"
#include "base/fd.hpp"
#include "base/io.hpp"
#include "base/paths.hpp"
#include "base/shared.hpp"
#include "system/walk.hpp"
#include "verify/delete.hpp"
#include "verify/handlers.hpp"
#include "verify/signers.hpp"
#include "verify/sweep.hpp"

namespace {

constexpr std::size_t sig_suffix_len = 4;

// The sweep judges the terminal's own files with root's rights, whoever started it (D27): a caller
// who cannot read an installed signature must not make a verified file look unsigned and have it
// deleted.
constexpr OpenAs judge = OpenAs::root;

// Deletes a file of the sweep; it may have been a candidate signer, which no later file may meet.
ExitStatus sweep_unlink(Signers& signers, const std::string& path) {
    const ExitStatus st = file_unlink(path.c_str());
    signers.deleted(path);
    return st;
}

bool is_signature(const std::string& path) {
    return path.size() >= sig_suffix_len &&
           path.compare(path.size() - sig_suffix_len, sig_suffix_len, ".sig") == 0;
}

WalkStep sweep_signature(Signers& signers, const std::string& path) {
    std::printf("%s - signature", path.c_str());
    const std::string data = path.substr(0, path.size() - sig_suffix_len);
    if (caller_access(data.c_str(), F_OK, judge)) {
        std::puts("");
        return WalkStep::go_on;
    }
    std::puts(" - orphaned - delete");
    if (sweep_unlink(signers, path) != ST_OK) {
        std::printf("Failed to delete orphaned signature file: %s.\n", path.c_str());
        return WalkStep::stop;
    }
    return WalkStep::go_on;
}

WalkStep sweep_data(Signers& signers, const std::string& path) {
    std::printf("%s - data/executable", path.c_str());
    const std::string sig = path + ".sig";
    // Opening the signature answers whether it exists on the usual path; only a failed open needs
    // the separate test, which then tells "missing" from "there but unreadable".
    UniqueFd sig_fd = caller_open(sig.c_str(), O_RDONLY | O_NONBLOCK, judge);
    if (!sig_fd && !caller_access(sig.c_str(), F_OK, judge)) {
        std::puts(" - missing signature - delete");
        if (sweep_unlink(signers, path) != ST_OK) {
            std::printf("Failed to delete unsigned file: %s.\n", path.c_str());
            return WalkStep::stop;
        }
        return WalkStep::go_on;
    }
    const Result<Signature> bytes =
        sig_fd ? sig_read_opened(sig_fd.get(), sig) : sig_read(sig, judge);
    sig_fd.reset();
    const ExitStatus verdict =
        bytes.ok() ? data_verify(signers, path.c_str(), *bytes, judge).status() : bytes.status();
    if (verdict == ST_OK) {
        std::puts(" - verified");
        return WalkStep::go_on;
    }
    std::puts(" - invalid signature - delete");
    if (sweep_unlink(signers, path) != ST_OK) {
        std::printf("Failed to delete invalid data/executable: %s.\n", path.c_str());
        return WalkStep::stop;
    }
    if (sweep_unlink(signers, sig) != ST_OK) {
        std::printf("Failed to delete invalid signature: %s.\n", sig.c_str());
        return WalkStep::stop;
    }
    return WalkStep::go_on;
}

}  // namespace

WalkStep ftw_process_files(Signers& signers, const char* path, int type) {
    if (type != FTW_F) {
        return WalkStep::go_on;
    }
    const std::string p(path);
    if (is_signature(p)) {
        return sweep_signature(signers, p);
    }
    // Certificates have no signature; the certificate sweep judges them.
    if (starts_with(p, paths::cert_store)) {
        return WalkStep::go_on;
    }
    return sweep_data(signers, p);
}

void ids_task_init() {
    // The one test the caller's rights still decide: whether this caller may mark the sweep done.
    if (!caller_access(paths::ids_task_init, W_OK)) {
        return;
    }
    UniqueFd fd(open(paths::ids_task_init, O_WRONLY | O_TRUNC | O_CLOEXEC));
    if (!fd) {
        return;
    }
    // The kernel's answer to the mark is not ours to judge.
    (void)write_full(fd.get(), "1", 1);
}

ExitStatus cmd_authenticate() {
    // One search for the whole walk: most files share their signer, whose key is then tried first.
    Signers signers;
    const auto step = [&signers](const char* path, const struct stat* /*st*/, int type) {
        return ftw_process_files(signers, path, type);
    };
    if (walk_tree(paths::usr_local, step) != ST_OK) {
        return ST_FAILURE;
    }
    ids_task_init();
    return ST_OK;
}
