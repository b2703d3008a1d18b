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

// The file's shape, then the device; bytes that no longer carry the accepted signer when they are
// sent (D6) go like any rejected file.
ExitStatus kbpk_file_send(const char* path, int id, std::uint16_t flags,
                          ExitStatus (*send)(int, std::uint16_t, const char*)) {
    if (ExitStatus st = file_verify_kbpk_file(path); st != ST_OK) {
        return st;
    }
    return reject_on_bad_signature(send(id, flags, path), path);
}

// The acquirer ID rule, then the KBPK the command needs: an install wants none yet, every other
// command an existing one.
Result<int> kbpk_command_start(const char* arg, bool kbpk_wanted) {
    const Result<int> id = acquirer_command_start(arg);
    if (!id.ok()) {
        return id.status();
    }
    if (kbpk_exists(*id) != kbpk_wanted) {
        return ST_KBPK_PRESENCE;
    }
    return *id;
}

void print_invalid_signer(const std::string& role) {
    std::printf("Invalid signature: %s.\n", role.c_str());
}

// The KBPK flags that the signer's role gives; none for a role that may not sign a KBPK.
using SignerFlags = std::optional<std::uint16_t>;

// The file's signer (a bad signature takes the file with it) and the flags its role gives. A role
// that may not sign is reported here; the command rejects the file once it has said the rest.
Result<SignerFlags> kbpk_file_flags(const char* path) {
    const Result<Signer> signer = file_verify_or_reject(path);
    if (!signer.ok()) {
        return signer.status();
    }
    SignerFlags flags = kbpk_signer_flags(signer->cn);
    if (!flags) {
        print_invalid_signer(signer->cn);
    }
    return flags;
}

}  // namespace

ExitStatus cmd_kbpk_install_check(int /*argc*/, char** argv) {
    if (const Result<int> started = kbpk_command_start(argv[2], false); !started.ok()) {
        return started.status();
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
    const Result<int> started = kbpk_command_start(argv[2], false);
    if (!started.ok()) {
        return started.status();
    }
    const int id = *started;
    const Result<SignerFlags> flags = kbpk_file_flags(argv[3]);
    if (!flags.ok()) {
        return flags.status();
    }
    if (!*flags) {
        return reject_on_bad_signature(ST_BAD_SIGNATURE, argv[3]);
    }
    if (**flags & sapi::flag_pci_pin) {
        std::puts("PCI PIN security enabled.");
    }
    if (ExitStatus st = kbpk_file_send(argv[3], id, **flags, kbpk_install_file); st != ST_OK) {
        return st;
    }
    std::puts("KBPK installed.");
    return ST_OK;
}

ExitStatus cmd_kbpk_update_pci_pin(int /*argc*/, char** argv) {
    const Result<int> started = kbpk_command_start(argv[2], true);
    if (!started.ok()) {
        return started.status();
    }
    const int id = *started;
    const Result<SignerFlags> flags = kbpk_file_flags(argv[3]);
    if (!flags.ok()) {
        return flags.status();
    }
    // A refused signer is reported as switching security off before the file goes.
    std::puts(*flags && (**flags & sapi::flag_pci_pin) ? "PCI PIN security enabled."
                                                       : "PCI PIN security disabled.");
    if (!*flags) {
        return reject_on_bad_signature(ST_BAD_SIGNATURE, argv[3]);
    }
    if (ExitStatus st = kbpk_file_send(argv[3], id, **flags, kbpk_update_pci_pin_file);
        st != ST_OK) {
        return st;
    }
    std::puts("KBPK PCI PIN Security updated.");
    return ST_OK;
}

ExitStatus cmd_kbpk_remove(int /*argc*/, char** argv) {
    const Result<int> started = kbpk_command_start(argv[2], true);
    if (!started.ok()) {
        return started.status();
    }
    const int id = *started;
    if (ExitStatus st = kbpk_remove(id); st != ST_OK) {
        return st;
    }
    std::puts("KBPK removed.");
    return ST_OK;
}

ExitStatus cmd_kbpk_verify_pci_pin(int /*argc*/, char** argv) {
    const Result<int> started = kbpk_command_start(argv[2], true);
    if (!started.ok()) {
        return started.status();
    }
    const int id = *started;
    const Result<std::uint16_t> flags = kbpk_flags_read(id);
    if (!flags.ok()) {
        return flags.status();
    }
    if (!(*flags & sapi::flag_pci_pin)) {
        std::puts("KBPK has PCI PIN security disabled.");
        return ST_PCI_PIN_DISABLED;
    }
    std::puts("KBPK has PCI PIN security enabled.");
    return ST_OK;
}
