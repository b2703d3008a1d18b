// Handlers of the device-state subsystem.
#pragma once

#include "base/status.hpp"

[[nodiscard]] ExitStatus cmd_make_factory();
[[nodiscard]] ExitStatus cmd_make_restore();
[[nodiscard]] ExitStatus cmd_wipe();
[[nodiscard]] ExitStatus cmd_msd_mount();
[[nodiscard]] ExitStatus cmd_msd_umount();
[[nodiscard]] ExitStatus cmd_rate_limit_store();
[[nodiscard]] ExitStatus cmd_update_dukpt_ksn();
[[nodiscard]] ExitStatus cmd_dmesg_store();
