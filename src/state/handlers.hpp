// Handlers of the device-state subsystem.
#pragma once

#include "base/status.hpp"

[[nodiscard]] ExitStatus cmd_make_factory(int argc, char** argv);
[[nodiscard]] ExitStatus cmd_make_restore(int argc, char** argv);
[[nodiscard]] ExitStatus cmd_wipe(int argc, char** argv);
[[nodiscard]] ExitStatus cmd_msd_mount(int argc, char** argv);
[[nodiscard]] ExitStatus cmd_msd_umount(int argc, char** argv);
[[nodiscard]] ExitStatus cmd_rate_limit_store(int argc, char** argv);
[[nodiscard]] ExitStatus cmd_update_dukpt_ksn(int argc, char** argv);
[[nodiscard]] ExitStatus cmd_dmesg_store(int argc, char** argv);
