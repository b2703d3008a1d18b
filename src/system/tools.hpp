// Running the platform's tools as children, and the wrappers over them.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "base/result.hpp"
#include "base/status.hpp"

// What a failed fork means for the caller of a tool.
enum class ForkFailure { return_failure, end_program };

// Forks, execv's the absolute path with argv (no trailing null needed) and waits. 0 only for a
// wait status of 0, else 9. The child runs as root (D1) with the fixed environment (D5) and only
// descriptors 0 to 2: /dev/null to read, and pipes of ours for its output, which is held after
// our own lines and reaches the caller's descriptors 1 and 2 once the run lock is given back
// (D22). A tool works on what runs share: the run holds the lock from here on.
[[nodiscard]] ExitStatus sys_run_tool(const char* path, const std::vector<const char*>& argv,
                                      ForkFailure on_fork_failure);

// As sys_run_tool, with the child's standard output on out (a descriptor of ours), for a caller
// that only cares whether the tool could be started: false when no child process could be made,
// whatever the tool did.
[[nodiscard]] bool sys_tool_started_into(const char* path, const std::vector<const char*>& argv,
                                         int out);

[[nodiscard]] ExitStatus sys_adduser(const char* user);
[[nodiscard]] ExitStatus sys_passwd(const char* option, const char* user);
// The last step of a run: gives the run lock back and writes the held output first.
void sys_reboot();
[[nodiscard]] ExitStatus sys_mount(const char* type, const char* options, const char* device,
                                   const char* mount_point);
[[nodiscard]] ExitStatus sys_umount(const char* mount_point, const char* option);
// option may be null: the vector then has no option.
[[nodiscard]] ExitStatus sys_fsck(const char* image, const char* option);
[[nodiscard]] ExitStatus sys_nvram_set(const char* key, const char* value);
[[nodiscard]] ExitStatus sys_nvram_commit();
// Runs "/usr/sbin/nvram get KEY" directly (D5) and gives the first line it printed, line end
// included, or nothing when it printed none. 9 when no pipe or child process could be made; a tool
// that cannot be executed prints nothing, as it would through a shell.
[[nodiscard]] Result<std::optional<std::string>> sys_nvram_get(const char* key);
[[nodiscard]] ExitStatus sys_chown(const char* path, uid_t uid, gid_t gid);
[[nodiscard]] ExitStatus sys_chmod(const char* path, mode_t mode);
// dir is a sysfs LED directory without a trailing "/".
[[nodiscard]] ExitStatus set_led_permissions(const char* dir);
