// The one file-tree walk: every sweep over a directory tree goes through it.
#include "system/walk.hpp"

#include <ftw.h>
#include <sys/stat.h>

#include <exception>
#include <functional>
#include <optional>
#include <string>

#include "base/path_rules.hpp"
#include "base/run_lock.hpp"
#include "base/shared.hpp"

namespace {

using Step = std::function<WalkStep(const char*, const struct stat*, int)>;

// nftw takes a plain function: the step of the walk in progress is reached through this pointer.
// The program has one thread; a walk started from inside a step saves and restores it.
struct Current {
    const Step* step = nullptr;
    std::string root;
    std::exception_ptr error;
};

Current& current() {
    static Current c;
    return c;
}

// Open descriptors stay bounded however deep the tree goes.
constexpr int max_open_dirs = 10;

// A link to a directory elsewhere is not walked into: a sweep that deletes what it finds must
// never reach files outside the tree it was given.
bool leads_outside(const char* path, const std::string& root) {
    struct stat link {};
    if (lstat(path, &link) != 0 || !S_ISLNK(link.st_mode)) {
        return false;
    }
    const std::optional<std::string> real = resolve_path(path);
    return !real || !starts_with(*real + "/", root.c_str());
}

int trampoline(const char* path, const struct stat* st, int type, struct FTW* /*where*/) {
    Current& c = current();
    if (type == FTW_D && leads_outside(path, c.root)) {
        return FTW_SKIP_SUBTREE;
    }
    try {
        return (*c.step)(path, st, type) == WalkStep::stop ? FTW_STOP : FTW_CONTINUE;
    } catch (...) {
        // An exception must not unwind through the C library's walk, which would leak its
        // descriptors: stop the walk and rethrow once it has cleaned up.
        c.error = std::current_exception();
        return FTW_STOP;
    }
}

}  // namespace

ExitStatus walk_tree(const char* root, const Step& step) {
    // Every tree walked is the terminal's own, which other runs change (D22).
    shared_work();
    Current& c = current();
    const Current saved = c;
    c.step = &step;
    c.error = nullptr;
    const std::optional<std::string> real_root = resolve_path(root);
    c.root = real_root ? *real_root + "/" : std::string(root);
    // No FTW_PHYS: symbolic links are followed, so a link is judged by what it leads to.
    // FTW_ACTIONRETVAL lets a directory that leads outside be skipped without ending the walk.
    const int result = nftw(root, trampoline, max_open_dirs, FTW_ACTIONRETVAL);
    const std::exception_ptr error = c.error;
    c = saved;
    if (error) {
        std::rethrow_exception(error);
    }
    return result == 0 ? ST_OK : ST_FAILURE;
}
