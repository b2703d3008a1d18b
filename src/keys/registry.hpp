// The key hash registry: no key value is installed twice, whatever acquirer or file it comes under.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/result.hpp"
#include "base/status.hpp"
#include "device/sapi_wire.hpp"

// The paired registry keeps both digests of every key; a terminal that has the single one keeps
// only key digests and never learns of re-installations.
enum class RegistryKind { paired, single };

enum class RegistryOutcome {
    append,       // no record matched: the key is new
    reinstall,    // same key digest and same second digest (paired only)
    duplicate,    // the key value is registered
    bad_length,   // the paired scan reached a last part record of 32 to 63 bytes
};

// Scans the records of a registry read whole, from the start. Trailing part records that the scan
// never needs are ignored.
[[nodiscard]] RegistryOutcome registry_scan(std::span<const std::uint8_t> contents,
                                            RegistryKind kind, const sapi::KeyDigest& key_digest,
                                            const sapi::KeyDigest& second_digest);

// The bytes appended for a new key.
[[nodiscard]] std::vector<std::uint8_t> registry_record(RegistryKind kind,
                                                        const sapi::KeyDigest& key_digest,
                                                        const sapi::KeyDigest& second_digest);

// Where the two registries live.
struct RegistryFiles {
    const char* paired;
    const char* single;
};

// The registry in force, read whole before the device is asked for a key.
struct Registry {
    RegistryKind kind = RegistryKind::paired;
    const char* path = nullptr;
    std::vector<std::uint8_t> contents;
};

// Chooses the registry in force, the single one whenever anything is at its name, and reads it
// whole; a paired registry that is not there yet is empty, and the first key makes it. One that
// cannot be opened or read, or is anything but root's regular file, is damage (only root makes
// entries there): "FATAL: Failed to open the cryptographic key hash file." and 9, so a key is
// never checked against less than the registry in force holds (D25).
[[nodiscard]] Result<Registry> registry_load(const RegistryFiles& files);

// registry_load on the terminal's registries under "/home/orvin/.sapi".
[[nodiscard]] Result<Registry> sha256_registry_load();

// Check and append against the registry as loaded. 0 (new and appended, or a re-installation),
// 12 duplicate, 9 unusable registry; prints its own lines.
[[nodiscard]] ExitStatus sha256_hash_check(const Registry& registry,
                                           const sapi::KeyDigest& key_digest,
                                           const sapi::KeyDigest& second_digest);
