// Handlers of the device-state subsystem.
#pragma once

int cmd_make_factory(int argc, char** argv);
int cmd_make_restore(int argc, char** argv);
int cmd_wipe(int argc, char** argv);
int cmd_msd_mount(int argc, char** argv);
int cmd_msd_umount(int argc, char** argv);
int cmd_rate_limit_store(int argc, char** argv);
int cmd_update_dukpt_ksn(int argc, char** argv);
int cmd_dmesg_store(int argc, char** argv);
