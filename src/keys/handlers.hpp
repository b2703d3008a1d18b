// Handlers of the key-management subsystem.
#pragma once

#include "base/status.hpp"
#include "verify/cert_chain.hpp"

[[nodiscard]] ExitStatus cmd_keys_init(ChainStore& chains);
[[nodiscard]] ExitStatus cmd_kbpk_install_check(const char* acquirer, const char* path);
[[nodiscard]] ExitStatus cmd_kbpk_install(const char* acquirer, const char* path);
[[nodiscard]] ExitStatus cmd_kbpk_remove(const char* acquirer);
[[nodiscard]] ExitStatus cmd_kbpk_update_pci_pin(const char* acquirer, const char* path);
[[nodiscard]] ExitStatus cmd_kbpk_verify_pci_pin(const char* acquirer);
[[nodiscard]] ExitStatus cmd_key_install_check(const char* acquirer, const char* tr31_path,
                                               const char* opk_path);
[[nodiscard]] ExitStatus cmd_key_install(const char* acquirer, const char* tr31_path,
                                         const char* opk_path);
