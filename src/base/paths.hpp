// Every fixed path, tool and device of the terminal; nothing moves them (D14).
#pragma once

namespace paths {

// Application file system, its areas and the certificate store.
inline constexpr const char* osfs_device = "/dev/mtdblock12";
inline constexpr const char* osfs_type = "jffs2";
inline constexpr const char* usr_local = "/usr/local/";
inline constexpr const char* shared_area = "/usr/local/share/";
inline constexpr const char* cert_store = "/usr/local/share/certs/";
// Where files bound for the application file system are written before they are renamed into
// place: on the same file system, root's alone, read by nothing that looks for files by name, and
// emptied at the start of every run (D28).
inline constexpr const char* osfs_staging = "/usr/local/.staging";
inline constexpr const char* prod_sign_cert = "/usr/local/share/certs/prod-sign.crt";
inline constexpr const char* keysign_main_user_cert = "/usr/local/share/certs/keysign-main-user.crt";
inline constexpr const char* terminal_cert = "/usr/local/share/certs/terminal.crt";
// The names the certificates restored from nvram are staged under.
inline constexpr const char* prod_sign_cert_name = "prod-sign.crt";
inline constexpr const char* terminal_cert_name = "terminal.crt";

// Trust anchors and system certificates.
inline constexpr const char* ssl_dir = "/usr/ssl/";
inline constexpr const char* ssl_bundle_name = "cert.pem";
inline constexpr const char* anchor_bundle = "/usr/ssl/cert.pem";
inline constexpr const char* anchor_os = "/usr/ssl/OS.4-1-1.FSL.X509.crt";
inline constexpr const char* anchor_rki = "/usr/ssl/Orvin-RKI-CA.crt";

// The program's own state.
inline constexpr const char* orvin_home = "/home/orvin";
inline constexpr const char* state_dir = "/home/orvin/.sapi";
inline constexpr const char* home_prefix = "/home/";
// Held by the run in progress; root-only (D22).
inline constexpr const char* run_lock = "/home/orvin/.run-lock";
inline constexpr const char* key_registry_paired = "/home/orvin/.sapi/.sha256";
inline constexpr const char* key_registry_single = "/home/orvin/.sapi/.sha256-hashes";
inline constexpr const char* kbpk_state_prefix = "/home/orvin/.sapi/.KBPK";
inline constexpr const char* kbpk_flag_prefix = "/home/orvin/.sapi/.FLAG";
inline constexpr const char* rate_limit_state = "/home/orvin/.sapi/.rate-limit";
inline constexpr const char* ksn_log = "/home/orvin/.dukpt-ksn-log";
inline constexpr const char* dmesg_file = "/home/orvin/dmesg";
// The run's private directory for temporary files outside /usr/local/ (D19).
inline constexpr const char* private_tmp_template = "/tmp/orvin-auth.XXXXXX";

// The mass-storage image and where it is mounted.
inline constexpr const char* msd_image = "/home/fat32/vfat.img";
inline constexpr const char* msd_mount_point = "/mnt/vfat";

// Platform tools.
inline constexpr const char* tool_adduser = "/bin/adduser";
inline constexpr const char* tool_passwd = "/usr/bin/passwd";
inline constexpr const char* tool_deluser = "/bin/deluser";
inline constexpr const char* tool_reboot = "/sbin/reboot";
inline constexpr const char* tool_nandwrite = "/usr/bin/nandwrite";
inline constexpr const char* tool_mtd_debug = "/usr/bin/mtd_debug";
inline constexpr const char* tool_mount = "/bin/mount";
inline constexpr const char* tool_umount = "/bin/umount";
inline constexpr const char* tool_fsck = "/sbin/fsck.vfat";
inline constexpr const char* tool_nvram = "/usr/sbin/nvram";
// Where the search for dmesg along child_path ends when no directory there holds it.
inline constexpr const char* tool_dmesg = "/bin/dmesg";

// Devices, kernel and platform files.
inline constexpr const char* sapi_device = "/dev/sapi0";
inline constexpr const char* sapi_proc = "/proc/sapi";
inline constexpr const char* dev_null = "/dev/null";
inline constexpr const char* inittab = "/etc/inittab";
inline constexpr const char* mtd_table = "/proc/mtd";
inline constexpr const char* ids_task_init = "/sys/kernel/security/ids/task_init";
inline constexpr const char* flag_make_restore = "/sys/kernel/flags/make_restore";
inline constexpr const char* flag_make_factory = "/sys/kernel/flags/make_factory";
inline constexpr const char* flag_wipe = "/sys/kernel/flags/wipe";
inline constexpr const char* flag_os_update = "/sys/kernel/flags/os_update";

// MTD partition names, as "/proc/mtd" lists them.
inline constexpr const char* mtd_screens = "screens";
inline constexpr const char* mtd_os_update = "os-update";

// The environment every child and shell gets (D5).
inline constexpr const char* child_path = "/usr/sbin:/usr/bin:/sbin:/bin";

}  // namespace paths
