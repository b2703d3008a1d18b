// The five KBPK commands: install (and its check), remove, and the PCI PIN setting.
#include <cstdio>
#include <optional>

#include "base/caller.hpp"
#include "keys/acquirer.hpp"
#include "keys/handlers.hpp"
#include "keys/kbpk.hpp"
#include "keys/tr31.hpp"
#include "verify/delete.hpp"
#include "verify/signature.hpp"

namespace {

// A rejected KBPK file goes with its signature, as far as the caller could delete them (D2);
// a refused deletion has printed its line and changes no status.
void kbpk_file_reject(const char* path) {
    (void)file_sig_unlink(path);
}

// The signer of a file an installing command was given; a bad signature deletes the file.
Result<Signer> kbpk_file_signer(const char* path) {
    Result<Signer> signer = file_verify(path);
    if (signer.status() == ST_BAD_SIGNATURE) {
        kbpk_file_reject(path);
    }
    return signer;
}

// The file's shape, then the device; bytes that no longer carry the accepted signer when they are
// sent (D6) go like any rejected file.
ExitStatus kbpk_file_send(const char* path, int id, std::uint16_t flags,
                          ExitStatus (*send)(int, std::uint16_t, const char*)) {
    if (ExitStatus st = file_verify_kbpk_file(path); st != ST_OK) {
        return st;
    }
    ExitStatus st = send(id, flags, path);
    if (st == ST_BAD_SIGNATURE) {
        kbpk_file_reject(path);
    }
    return st;
}

void print_invalid_signer(const std::string& role) {
    std::printf("Invalid signature: %s.\n", role.c_str());
}

}  // namespace

ExitStatus cmd_kbpk_install_check(int /*argc*/, char** argv) {
    int id = 0;
    if (ExitStatus st = acquirer_command_start(argv[2], id); st != ST_OK) {
        return st;
    }
    if (kbpk_exists(id)) {
        return ST_KBPK_PRESENCE;
    }
    Result<Signer> signer = file_verify(argv[3]);
    if (!signer.ok()) {
        return signer.status();
    }
    if (!kbpk_signer_flags(signer->cn)) {
        print_invalid_signer(signer->cn);
        return ST_BAD_SIGNATURE;
    }
    if (ExitStatus st = file_verify_kbpk_file(argv[3]); st != ST_OK) {
        return st;
    }
    std::puts("KBPK can be installed.");
    return ST_OK;
}

ExitStatus cmd_kbpk_install(int /*argc*/, char** argv) {
    int id = 0;
    if (ExitStatus st = acquirer_command_start(argv[2], id); st != ST_OK) {
        return st;
    }
    if (kbpk_exists(id)) {
        return ST_KBPK_PRESENCE;
    }
    Result<Signer> signer = kbpk_file_signer(argv[3]);
    if (!signer.ok()) {
        return signer.status();
    }
    std::optional<std::uint16_t> flags = kbpk_signer_flags(signer->cn);
    if (!flags) {
        print_invalid_signer(signer->cn);
        kbpk_file_reject(argv[3]);
        return ST_BAD_SIGNATURE;
    }
    if (*flags & sapi::flag_pci_pin) {
        std::puts("PCI PIN security enabled.");
    }
    if (ExitStatus st = kbpk_file_send(argv[3], id, *flags, kbpk_install_file); st != ST_OK) {
        return st;
    }
    std::puts("KBPK installed.");
    return ST_OK;
}

ExitStatus cmd_kbpk_update_pci_pin(int /*argc*/, char** argv) {
    int id = 0;
    if (ExitStatus st = acquirer_command_start(argv[2], id); st != ST_OK) {
        return st;
    }
    if (!kbpk_exists(id)) {
        return ST_KBPK_PRESENCE;
    }
    Result<Signer> signer = kbpk_file_signer(argv[3]);
    if (!signer.ok()) {
        return signer.status();
    }
    std::optional<std::uint16_t> flags = kbpk_signer_flags(signer->cn);
    if (!flags) {
        print_invalid_signer(signer->cn);
    }
    // A refused signer is reported as switching security off before the file goes.
    std::puts(flags && (*flags & sapi::flag_pci_pin) ? "PCI PIN security enabled."
                                                     : "PCI PIN security disabled.");
    if (!flags) {
        kbpk_file_reject(argv[3]);
        return ST_BAD_SIGNATURE;
    }
    if (ExitStatus st = kbpk_file_send(argv[3], id, *flags, kbpk_update_pci_pin_file);
        st != ST_OK) {
        return st;
    }
    std::puts("KBPK PCI PIN Security updated.");
    return ST_OK;
}

ExitStatus cmd_kbpk_remove(int /*argc*/, char** argv) {
    int id = 0;
    if (ExitStatus st = acquirer_command_start(argv[2], id); st != ST_OK) {
        return st;
    }
    if (!kbpk_exists(id)) {
        return ST_KBPK_PRESENCE;
    }
    if (ExitStatus st = kbpk_remove(id); st != ST_OK) {
        return st;
    }
    std::puts("KBPK removed.");
    return ST_OK;
}

ExitStatus cmd_kbpk_verify_pci_pin(int /*argc*/, char** argv) {
    int id = 0;
    if (ExitStatus st = acquirer_command_start(argv[2], id); st != ST_OK) {
        return st;
    }
    if (!kbpk_exists(id)) {
        return ST_KBPK_PRESENCE;
    }
    std::uint16_t flags = 0;
    if (kbpk_flag_exists(id)) {
        if (ExitStatus st = kbpk_flags_read(id, flags); st != ST_OK) {
            return st;
        }
    }
    if (!(flags & sapi::flag_pci_pin)) {
        std::puts("KBPK has PCI PIN security disabled.");
        return ST_PCI_PIN_DISABLED;
    }
    std::puts("KBPK has PCI PIN security enabled.");
    return ST_OK;
}
