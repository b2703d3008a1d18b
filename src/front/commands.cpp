// The command table: the one place that knows the option words.
#include "front/commands.hpp"

#include <array>
#include <cstdio>

#include "certs/handlers.hpp"
#include "install/handlers.hpp"
#include "keys/handlers.hpp"
#include "state/handlers.hpp"
#include "verify/handlers.hpp"
#include "x509/handlers.hpp"

namespace {

constexpr Usage listed = Usage::listed;
constexpr Usage hidden = Usage::hidden;

// clang-format off
constexpr std::array table{
    command<cmd_authenticate>(        "--authenticate",        hidden, ""),
    command<cmd_cert_install_check>(  "--install-cert-check",  listed, "<certificate file>"),
    command<cmd_cert_install>(        "--install-cert",        listed, "<certificate file>"),
    command<cmd_image_install_check>( "--install-image-check", listed, "<image file>"),
    command<cmd_image_install>(       "--install-image",       listed, "<image file>"),
    command<cmd_file_install_check>(  "--install-check",       listed, "<signed file> <installed filename>"),
    command<cmd_file_install>(        "--install",             listed, "<signed file> <installed filename>"),
    command<cmd_file_remove>(         "--remove",              listed, "<cert/signed file>"),
    command<cmd_file_rename>(         "--rename",              listed, "<cert/signed file> <new filename>"),
    command<cmd_os_update>(           "--update-os",           listed, "<operating system image file>"),
    command<cmd_make_factory>(        "--make-factory",        listed, ""),
    command<cmd_make_restore>(        "--make-restore",        listed, ""),
    command<cmd_wipe>(                "--wipe",                listed, ""),
    command<cmd_msd_mount>(           "--mount-msd",           hidden, ""),
    command<cmd_msd_umount>(          "--umount-msd",          hidden, ""),
    command<cmd_keys_init>(           "--init-keys",           hidden, ""),
    command<cmd_kbpk_install_check>(  "--install-kbpk-check",  listed, "<acquirer ID> <kbpk file>"),
    command<cmd_kbpk_install>(        "--install-kbpk",        listed, "<acquirer ID> <kbpk file>"),
    command<cmd_kbpk_remove>(         "--remove-kbpk",         listed, "<acquirer ID>"),
    command<cmd_kbpk_update_pci_pin>( "--update-kbpk-pci-pin", listed, "<acquirer ID> <kbpk file>"),
    command<cmd_kbpk_verify_pci_pin>( "--verify-kbpk-pci-pin", listed, "<acquirer ID>"),
    command<cmd_key_install_check>(   "--install-key-check",   listed, "<acq ID> <tr31 file> <opk file>"),
    command<cmd_key_install>(         "--install-key",         listed, "<acq ID> <tr31 file> <opk file>"),
    command<cmd_x509_csr>(            "--x509-csr",            hidden, ""),
    command<cmd_x509_generate>(       "--x509-generate",       hidden, ""),
    command<cmd_rate_limit_store>(    "--store-rate-limit",    hidden, ""),
    command<cmd_update_dukpt_ksn>(    "--update-ksn",          hidden, ""),
    command<cmd_dmesg_store>(         "--store-dmesg",         hidden, ""),
};
// clang-format on

}  // namespace

std::span<const CommandEntry> commands() {
    return table;
}

const CommandEntry* find_command(int argc, char** argv) {
    if (argc <= 1) {
        return nullptr;
    }
    const auto params = static_cast<std::size_t>(argc - 2);
    for (const CommandEntry& row : table) {
        if (row.option == argv[1] && row.param_count == params) {
            return &row;
        }
    }
    return nullptr;
}

void print_usage(const char* name) {
    std::printf("\nUsage: %s <option> <parameters>\n", name);
    std::puts("Where:");
    std::puts("    <option>                 <parameters>");
    for (const CommandEntry& row : table) {
        if (row.usage == Usage::listed) {
            std::printf("    %-21.*s    %s\n", static_cast<int>(row.option.size()), row.option.data(),
                        row.params);
        }
    }
}
