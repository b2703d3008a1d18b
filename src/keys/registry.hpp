// The key hash registry: no key value is installed twice, whatever acquirer or file it comes under.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/status.hpp"
#include "device/sapi_wire.hpp"

// The paired registry keeps both digests of every key; a terminal that has the single one keeps
// only key digests and never learns of re-installations.
enum class RegistryKind { paired, single };

enum class RegistryOutcome {
    append,       // no record matched: the key is new
    reinstall,    // same key digest and same second digest (paired only)
    duplicate,    // the key value is registered
    read_failed,  // the file held fewer bytes than its size promised
    bad_length,   // the paired scan reached a last part record of 32 to 63 bytes
};

[[nodiscard]] std::size_t registry_record_size(RegistryKind kind);

// Scans records from the start. size is the file's size as lstat gave it; contents are the bytes
// actually read, which may be fewer. Trailing part records that the scan never needs are ignored.
[[nodiscard]] RegistryOutcome registry_scan(std::span<const std::uint8_t> contents,
                                            std::size_t size, RegistryKind kind,
                                            const sapi::KeyDigest& key_digest,
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

// Check and append against the given files, the single one in force whenever it exists. 0 (new
// and appended, or a re-installation), 12 duplicate, 9 unusable registry; prints its own lines.
[[nodiscard]] ExitStatus registry_check(const RegistryFiles& files,
                                        const sapi::KeyDigest& key_digest,
                                        const sapi::KeyDigest& second_digest);

// registry_check on the terminal's registries under "/home/orvin/.sapi".
[[nodiscard]] ExitStatus sha256_hash_check(const sapi::KeyDigest& key_digest,
                                           const sapi::KeyDigest& second_digest);
