// The five KBPK commands: install (and its check), remove, and the PCI PIN setting.
#include <cstdio>
#include <optional>

#include "base/caller.hpp"
#include "base/run_lock.hpp"
#include "keys/acquirer.hpp"
#include "keys/handlers.hpp"
#include "keys/kbpk.hpp"
#include "keys/tr31.hpp"
#include "verify/delete.hpp"
#include "verify/signers.hpp"

namespace {

// The KBPK presence that admitted the command was judged before its file was read and verified,
// which happens without the run lock (D22); another run may have installed or removed the KBPK
// since. Under the lock it is judged again, as if the command had waited for that run.
ExitStatus kbpk_presence_confirmed(int id, bool kbpk_wanted) {
    shared_work();
    return kbpk_exists(id) == kbpk_wanted ? ST_OK : ST_KBPK_PRESENCE;
}

// The file's shape, then the device; bytes that no longer carry the accepted signer when they are
// sent (D6) go like any rejected file.
ExitStatus kbpk_file_send(Signers& signers, const char* path, int id, std::uint16_t flags,
                          bool kbpk_wanted,
                          ExitStatus (*send)(Signers&, int, std::uint16_t, const char*)) {
    if (ExitStatus st = file_verify_kbpk_file(path); st != ST_OK) {
        return st;
    }
    if (ExitStatus st = kbpk_presence_confirmed(id, kbpk_wanted); st != ST_OK) {
        return st;
    }
    return reject_on_bad_signature(send(signers, id, flags, path), path);
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

// Whether a command tells the PCI PIN setting that a file would switch off.
enum class PciPinReport { when_enabled, always };

// A KBPK file accepted for sending: the acquirer and the flags its signer's role gives.
struct KbpkOffer {
    int id = 0;
    std::uint16_t flags = 0;
};

// The start both sending commands share: the acquirer and its KBPK, the file's signer (a bad
// signature takes the file with it) and the PCI PIN setting its role gives, said before a role that
// may not sign a KBPK is rejected with its file. A refused signer reads as switching security off.
Result<KbpkOffer> kbpk_offer(Signers& signers, const char* acquirer, const char* path,
                             bool kbpk_wanted, PciPinReport report) {
    const Result<int> id = kbpk_command_start(acquirer, kbpk_wanted);
    if (!id.ok()) {
        return id.status();
    }
    const Result<Signer> signer = file_verify_or_reject(signers, path);
    if (!signer.ok()) {
        return signer.status();
    }
    const std::optional<std::uint16_t> flags = kbpk_signer_flags(signer->cn);
    if (!flags) {
        print_invalid_signer(signer->cn);
    }
    const bool enabled = flags && (*flags & sapi::flag_pci_pin);
    if (enabled || report == PciPinReport::always) {
        std::puts(enabled ? "PCI PIN security enabled." : "PCI PIN security disabled.");
    }
    if (!flags) {
        return reject_on_bad_signature(ST_BAD_SIGNATURE, path);
    }
    return KbpkOffer{*id, *flags};
}

}  // namespace

ExitStatus cmd_kbpk_install_check(const char* acquirer, const char* path) {
    if (const Result<int> started = kbpk_command_start(acquirer, false); !started.ok()) {
        return started.status();
    }
    Signers signers;
    Result<Signer> signer = file_verify(signers, path);
    if (!signer.ok()) {
        return signer.status();
    }
    if (!kbpk_signer_flags(signer->cn)) {
        print_invalid_signer(signer->cn);
        return ST_BAD_SIGNATURE;
    }
    if (ExitStatus st = file_verify_kbpk_file(path); st != ST_OK) {
        return st;
    }
    std::puts("KBPK can be installed.");
    return ST_OK;
}

ExitStatus cmd_kbpk_install(const char* acquirer, const char* path) {
    // One search serves both verifications: the offered file's and the bytes sent (D6).
    Signers signers;
    const Result<KbpkOffer> offer = kbpk_offer(signers, acquirer, path, false, PciPinReport::when_enabled);
    if (!offer.ok()) {
        return offer.status();
    }
    if (ExitStatus st =
            kbpk_file_send(signers, path, offer->id, offer->flags, false, kbpk_install_file);
        st != ST_OK) {
        return st;
    }
    std::puts("KBPK installed.");
    return ST_OK;
}

ExitStatus cmd_kbpk_update_pci_pin(const char* acquirer, const char* path) {
    // One search serves both verifications: the offered file's and the bytes sent (D6).
    Signers signers;
    const Result<KbpkOffer> offer = kbpk_offer(signers, acquirer, path, true, PciPinReport::always);
    if (!offer.ok()) {
        return offer.status();
    }
    if (ExitStatus st =
            kbpk_file_send(signers, path, offer->id, offer->flags, true, kbpk_update_pci_pin_file);
        st != ST_OK) {
        return st;
    }
    std::puts("KBPK PCI PIN Security updated.");
    return ST_OK;
}

ExitStatus cmd_kbpk_remove(const char* acquirer) {
    const Result<int> started = kbpk_command_start(acquirer, true);
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

ExitStatus cmd_kbpk_verify_pci_pin(const char* acquirer) {
    const Result<int> started = kbpk_command_start(acquirer, true);
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
