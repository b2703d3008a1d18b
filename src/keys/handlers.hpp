// Handlers of the key-management subsystem.
#pragma once

#include "base/status.hpp"

[[nodiscard]] ExitStatus cmd_keys_init(int argc, char** argv);
[[nodiscard]] ExitStatus cmd_kbpk_install_check(int argc, char** argv);
[[nodiscard]] ExitStatus cmd_kbpk_install(int argc, char** argv);
[[nodiscard]] ExitStatus cmd_kbpk_remove(int argc, char** argv);
[[nodiscard]] ExitStatus cmd_kbpk_update_pci_pin(int argc, char** argv);
[[nodiscard]] ExitStatus cmd_kbpk_verify_pci_pin(int argc, char** argv);
[[nodiscard]] ExitStatus cmd_key_install_check(int argc, char** argv);
[[nodiscard]] ExitStatus cmd_key_install(int argc, char** argv);
