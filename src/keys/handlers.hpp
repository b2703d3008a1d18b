// Handlers of the key-management subsystem.
#pragma once

int cmd_keys_init(int argc, char** argv);
int cmd_kbpk_install_check(int argc, char** argv);
int cmd_kbpk_install(int argc, char** argv);
int cmd_kbpk_remove(int argc, char** argv);
int cmd_kbpk_update_pci_pin(int argc, char** argv);
int cmd_kbpk_verify_pci_pin(int argc, char** argv);
int cmd_key_install_check(int argc, char** argv);
int cmd_key_install(int argc, char** argv);
