// How the mass-storage image is checked and mounted: the options every run hands the tools.
#pragma once

namespace msd {

inline constexpr const char* fs_type = "vfat";
// Nothing on the image runs, and whatever the application puts there stays usable by everyone.
inline constexpr const char* mount_options = "loop,noexec,fmask=0111,dmask=0000";
inline constexpr const char* check_only = "-n";
inline constexpr const char* repair = "-a";
// Frees the loop device along with the mount.
inline constexpr const char* umount_option = "-d";

}  // namespace msd
