// Mounting and unmounting the mass-storage image, repaired first when its check finds damage.
#include "state/msd.hpp"

#include "base/caller.hpp"
#include "base/paths.hpp"
#include "state/handlers.hpp"
#include "system/tools.hpp"

namespace {

[[nodiscard]] ExitStatus msd_mount_image() {
    return sys_mount(msd::fs_type, msd::mount_options, paths::msd_image, paths::msd_mount_point);
}

}  // namespace

// 99 only says that a repair was attempted: the application looks at the image itself after it,
// so neither the repair's nor the mount's result changes the answer.
ExitStatus cmd_msd_mount() {
    if (ExitStatus st = caller_check(CallerRule::root_or_app); st != ST_OK) {
        return st;
    }
    if (sys_fsck(paths::msd_image, msd::check_only) == ST_OK) {
        return msd_mount_image();
    }
    (void)sys_fsck(paths::msd_image, msd::repair);
    (void)msd_mount_image();
    return ST_MSD_REPAIRED;
}

ExitStatus cmd_msd_umount() {
    if (ExitStatus st = caller_check(CallerRule::root_or_app); st != ST_OK) {
        return st;
    }
    return sys_umount(paths::msd_mount_point, msd::umount_option);
}
