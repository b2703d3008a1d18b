// The only place that reads or changes process and file-system IDs.
#include "caller.hpp"

#include <fcntl.h>
#include <sys/fsuid.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

namespace {

Caller& recorded() {
    static Caller c;
    return c;
}

}  // namespace

void caller_record() {
    Caller& c = recorded();
    c.uid = getuid();
    c.gid = getgid();
    int n = getgroups(0, nullptr);
    if (n > 0) {
        c.groups.resize(static_cast<std::size_t>(n));
        n = getgroups(n, c.groups.data());
        c.groups.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
    }
}

void caller_become_root() {
    // Without the set-user-ID bit these fail and the process stays the caller's; every privileged
    // step then fails on its own with its own message.
    [[maybe_unused]] const bool became_root = setresgid(0, 0, 0) == 0 && setresuid(0, 0, 0) == 0;
}

const Caller& caller() { return recorded(); }

bool caller_allowed(CallerRule rule) {
    const uid_t uid = caller().uid;
    switch (rule) {
        case CallerRule::root_only:
            return uid == ids::root;
        case CallerRule::root_or_app:
            return uid == ids::root || uid == ids::app_user;
    }
    return false;
}

ExitStatus caller_check(CallerRule rule) {
    if (caller_allowed(rule)) {
        return ST_OK;
    }
    std::puts("Access denied.");
    return ST_ACCESS_DENIED;
}

// The supplementary groups stay the caller's for the whole run: they do not widen root's rights,
// and with the caller's file-system IDs they give the caller's own groups their access.
// A root caller already has root's file-system identity: the switch would change nothing.
AsCaller::AsCaller(OpenAs who)
    : switched_(who == OpenAs::caller && (caller().uid != ids::root || caller().gid != 0)) {
    if (switched_) {
        (void)setfsgid(caller().gid);
        (void)setfsuid(caller().uid);
    }
}

AsCaller::~AsCaller() {
    if (switched_) {
        int saved = errno;
        (void)setfsuid(0);
        (void)setfsgid(0);
        errno = saved;
    }
}

UniqueFd caller_open(const char* path, int flags, OpenAs who) {
    UniqueFd fd;
    {
        AsCaller as(who);
        fd.reset(::open(path, (flags & ~O_ACCMODE) | O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    }
    struct stat st {};
    if (fd && (fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode))) {
        fd.reset();
        errno = S_ISDIR(st.st_mode) ? EISDIR : EINVAL;
    }
    return fd;
}

UniqueFd caller_open_dir(const char* path) {
    AsCaller as;
    return UniqueFd(::open(path, O_PATH | O_DIRECTORY | O_CLOEXEC));
}

Result<struct stat> caller_lstat(const char* path, OpenAs who) {
    struct stat st {};
    AsCaller as(who);
    if (::lstat(path, &st) != 0) {
        std::puts("FATAL: Failed to obtain file information.");
        return ST_FAILURE;
    }
    return st;
}

Result<CallerFile> caller_open_to_verify(const char* path, SizeRule rule, OpenAs who) {
    const Result<struct stat> st = caller_lstat(path, who);
    if (!st.ok()) {
        return st.status();
    }
    const auto size = static_cast<std::uint64_t>(st->st_size);
    if (rule != nullptr) {
        if (const ExitStatus refused = rule(size); refused != ST_OK) {
            return refused;
        }
    }
    UniqueFd fd = caller_open(path, 0, who);
    if (!fd) {
        std::puts("FATAL: Failed to open the file to verify.");
        return ST_FAILURE;
    }
    return CallerFile{std::move(fd), size, st->st_mode};
}

bool caller_access(const char* path, int mode, OpenAs who) {
    AsCaller as(who);
    return ::faccessat(AT_FDCWD, path, mode, AT_EACCESS) == 0;
}

bool caller_may_write_dir(int dir) {
    AsCaller as;
    return ::faccessat(dir, "", W_OK | X_OK, AT_EACCESS | AT_EMPTY_PATH) == 0;
}

bool caller_unlink(const char* path) {
    AsCaller as;
    return ::unlink(path) == 0;
}
