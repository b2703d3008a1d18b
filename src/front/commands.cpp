// The command table: the one place that knows the option words.
#include "front/commands.hpp"

#include <cstdio>
#include <cstring>

#include "certs/handlers.hpp"
#include "install/handlers.hpp"
#include "keys/handlers.hpp"
#include "state/handlers.hpp"
#include "verify/handlers.hpp"
#include "x509/handlers.hpp"

// clang-format off
const std::array<CommandEntry, command_count> cmds{{
    {"--authenticate",        1, 2, 2, "",                                   cmd_authenticate},
    {"--install-cert-check",  0, 3, 3, "<certificate file>",                 cmd_cert_install_check},
    {"--install-cert",        0, 3, 3, "<certificate file>",                 cmd_cert_install},
    {"--install-image-check", 0, 3, 3, "<image file>",                       cmd_image_install_check},
    {"--install-image",       0, 3, 3, "<image file>",                       cmd_image_install},
    {"--install-check",       0, 4, 4, "<signed file> <installed filename>", cmd_file_install_check},
    {"--install",             0, 4, 4, "<signed file> <installed filename>", cmd_file_install},
    {"--remove",              0, 3, 3, "<cert/signed file>",                 cmd_file_remove},
    {"--rename",              0, 4, 4, "<cert/signed file> <new filename>",  cmd_file_rename},
    {"--update-os",           0, 3, 3, "<operating system image file>",      cmd_os_update},
    {"--make-factory",        0, 2, 2, "",                                   cmd_make_factory},
    {"--make-restore",        0, 2, 2, "",                                   cmd_make_restore},
    {"--wipe",                0, 2, 2, "",                                   cmd_wipe},
    {"--mount-msd",           1, 2, 2, "",                                   cmd_msd_mount},
    {"--umount-msd",          1, 2, 2, "",                                   cmd_msd_umount},
    {"--init-keys",           1, 2, 2, "",                                   cmd_keys_init},
    {"--install-kbpk-check",  0, 4, 4, "<acquirer ID> <kbpk file>",          cmd_kbpk_install_check},
    {"--install-kbpk",        0, 4, 4, "<acquirer ID> <kbpk file>",          cmd_kbpk_install},
    {"--remove-kbpk",         0, 3, 3, "<acquirer ID>",                      cmd_kbpk_remove},
    {"--update-kbpk-pci-pin", 0, 4, 4, "<acquirer ID> <kbpk file>",          cmd_kbpk_update_pci_pin},
    {"--verify-kbpk-pci-pin", 0, 3, 3, "<acquirer ID>",                      cmd_kbpk_verify_pci_pin},
    {"--install-key-check",   0, 5, 5, "<acq ID> <tr31 file> <opk file>",    cmd_key_install_check},
    {"--install-key",         0, 5, 5, "<acq ID> <tr31 file> <opk file>",    cmd_key_install},
    {"--x509-csr",            1, 2, 2, "",                                   cmd_x509_csr},
    {"--x509-generate",       1, 2, 2, "",                                   cmd_x509_generate},
    {"--store-rate-limit",    1, 2, 2, "",                                   cmd_rate_limit_store},
    {"--update-ksn",          1, 2, 2, "",                                   cmd_update_dukpt_ksn},
    {"--store-dmesg",         1, 2, 2, "",                                   cmd_dmesg_store},
}};
// clang-format on

const CommandEntry* find_command(int argc, char** argv) {
    if (argc <= 1) {
        return nullptr;
    }
    for (const CommandEntry& row : cmds) {
        if (std::strcmp(row.option, argv[1]) == 0 && row.min_args <= argc && argc <= row.max_args) {
            return &row;
        }
    }
    return nullptr;
}

void print_usage(const char* name) {
    std::printf("\nUsage: %s <option> <parameters>\n", name);
    std::puts("Where:");
    std::puts("    <option>                 <parameters>");
    for (const CommandEntry& row : cmds) {
        if (row.hidden == 0) {
            std::printf("    %-21s    %s\n", row.option, row.params);
        }
    }
}
