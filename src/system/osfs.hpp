// Remounting the application file system writable for the moment of a change.
#pragma once

#include "base/status.hpp"

// ST_OK when "/usr/local/" is now writable, ST_FAILURE otherwise. Prints nothing.
[[nodiscard]] ExitStatus sys_unlock_osfs();
// Back to read-only; the result is ignored by design.
void sys_lock_osfs();
// Whether "/usr/local/" is mounted writable now.
[[nodiscard]] bool osfs_writable();

// Who tells of an unlock that failed: the guard, with "FATAL: Internal filesystem call failed."
// (no line end), or the caller, for a step that fails silently by design.
enum class UnlockFailure { report, silent };

// Unlocks on construction and, if that worked, locks again on destruction, so no path out of a
// change can forget the lock.
class OsfsWritable {
public:
    explicit OsfsWritable(UnlockFailure failure = UnlockFailure::report);
    ~OsfsWritable() {
        if (ok_) {
            sys_lock_osfs();
        }
    }
    OsfsWritable(const OsfsWritable&) = delete;
    OsfsWritable& operator=(const OsfsWritable&) = delete;

    [[nodiscard]] bool ok() const { return ok_; }

private:
    bool ok_;
};
