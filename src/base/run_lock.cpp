// Which part of a run keeps the other runs waiting (D22).
#include "run_lock.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>

#include "caller.hpp"
#include "fd.hpp"
#include "paths.hpp"

namespace {

// Plain values, with nothing to destroy: the held output is written by an exit handler, which
// gives the lock back first, after static objects may already be gone. The descriptor closes with
// the process.
int lock_fd = -1;
bool held = false;

}  // namespace

void run_lock_open() {
    // Only root can reach a 0600 root file, so no caller can take the lock itself; anything else
    // found at the name (planted or not ours) is not trusted with the job, and the run goes on
    // unguarded rather than not at all.
    UniqueFd fd(::open(paths::run_lock, O_RDONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC,
                       S_IRUSR | S_IWUSR));
    struct stat st {};
    if (!fd || ::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_uid != ids::root ||
        (st.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        return;
    }
    if (lock_fd < 0) {
        lock_fd = fd.release();
    }
}

void shared_work() {
    if (held || lock_fd < 0) {
        return;
    }
    int r;
    do {
        r = ::flock(lock_fd, LOCK_EX);
    } while (r != 0 && errno == EINTR);
    held = r == 0;
}

void run_lock_give_back() {
    if (held) {
        (void)::flock(lock_fd, LOCK_UN);
        held = false;
    }
}
