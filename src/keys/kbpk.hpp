// The KBPK store: one key-block protection key per acquirer, in the device and in state files.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "base/result.hpp"
#include "base/status.hpp"
#include "device/sapi_wire.hpp"
#include "verify/signers.hpp"

// "/home/orvin/.sapi/.KBPK0007": the protected KBPK the device handed back, 32 bytes.
[[nodiscard]] std::string kbpk_state_path(int id);
// "/home/orvin/.sapi/.FLAG0007": the stored flags as four hexadecimal digits, no line end.
[[nodiscard]] std::string kbpk_flag_path(int id);

// "%04X" of the stored flags: the program writes only "0000" and "8000".
[[nodiscard]] std::string kbpk_flag_text(std::uint16_t flags);
// The four stored characters read as strtoul does in base 16 (stopping at the first non-digit),
// low 16 bits kept.
[[nodiscard]] std::uint16_t kbpk_flag_value(std::span<const char, 4> text);

// The flags a signer's role gives a KBPK file: "HSM-PCI-PIN" switches PCI PIN security on,
// "main-user" may not sign one (nullopt), every other role switches it off.
[[nodiscard]] std::optional<std::uint16_t> kbpk_signer_flags(std::string_view role);

// Whether the acquirer's state file exists (judged with root rights, D3).
[[nodiscard]] bool kbpk_exists(int id);

// The flags in the acquirer's FLAG file, 0 when it has none (its existence judged with root
// rights); 9 without a message when it cannot be opened or holds fewer than four bytes.
[[nodiscard]] Result<std::uint16_t> kbpk_flags_read(int id);

// Sends a signed KBPK file, registers the digests and writes the state and FLAG files.
// 0, 9, 11, the registry's 12, or 7 when the bytes sent no longer carry the signer whose role
// gave the flags (D6).
[[nodiscard]] ExitStatus kbpk_install_file(Signers& signers, int id, std::uint16_t flags,
                                         const char* path);

// Sends the KBPK file again with new flags and rewrites the FLAG file; 0, 9, 11 or 7 (D6).
[[nodiscard]] ExitStatus kbpk_update_pci_pin_file(Signers& signers, int id, std::uint16_t flags,
                                                const char* path);

// Reloads a stored protected KBPK into the device; no file is written. 0 or 9.
[[nodiscard]] ExitStatus kbpk_install(
    int id, std::uint16_t flags, std::span<const std::uint8_t, sapi::protected_kbpk_size> kbpk);

// Removes the KBPK from the device, then its state and FLAG files. 0 or 9.
[[nodiscard]] ExitStatus kbpk_remove(int id);
