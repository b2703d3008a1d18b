// Remounting the application file system writable for the moment of a change.
#include "system/osfs.hpp"

#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdio>

#include "base/paths.hpp"
#include "base/run_lock.hpp"

namespace {

// The flags carry the traditional mount magic in their high bits, as this platform has always
// passed them; the kernel ignores it, but tools that watch the remounts see the same value.
constexpr unsigned long mount_magic = 0xC0ED0000UL;
constexpr unsigned long writable_flags = mount_magic | MS_REMOUNT;
constexpr unsigned long readonly_flags = mount_magic | MS_REMOUNT | MS_RDONLY;
static_assert(writable_flags == 0xC0ED0020UL && readonly_flags == 0xC0ED0021UL);

bool remount(unsigned long flags) {
    // The mode of /usr/local/ belongs to every run (D22).
    shared_work();
    // Whatever was written must reach the flash before its mode changes.
    sync();
    return mount(paths::osfs_device, paths::usr_local, paths::osfs_type, flags, "") == 0;
}

}  // namespace

ExitStatus sys_unlock_osfs() { return remount(writable_flags) ? ST_OK : ST_FAILURE; }

void sys_lock_osfs() {
    // A file system that stays writable is no reason to fail the change that was just made.
    (void)remount(readonly_flags);
}

OsfsWritable::OsfsWritable(UnlockFailure failure) : ok_(sys_unlock_osfs() == ST_OK) {
    if (!ok_ && failure == UnlockFailure::report) {
        std::fputs("FATAL: Internal filesystem call failed.", stdout);
    }
}

bool osfs_writable() {
    struct statvfs fs {};
    return statvfs(paths::usr_local, &fs) == 0 && (fs.f_flag & ST_RDONLY) == 0;
}
