// The key hash registry: no key value is installed twice, whatever acquirer or file it comes under.
#include "keys/registry.hpp"

#include <algorithm>
#include <cstdio>

#include "base/paths.hpp"
#include "system/state_file.hpp"

namespace {

constexpr std::size_t digest = sapi::digest_size;

bool equal_at(std::span<const std::uint8_t> contents, std::size_t pos, const sapi::KeyDigest& d) {
    return std::equal(d.begin(), d.end(), contents.begin() + static_cast<std::ptrdiff_t>(pos));
}

}  // namespace

std::size_t registry_record_size(RegistryKind kind) {
    return kind == RegistryKind::paired ? 2 * digest : digest;
}

RegistryOutcome registry_scan(std::span<const std::uint8_t> contents, std::size_t size,
                              RegistryKind kind, const sapi::KeyDigest& key_digest,
                              const sapi::KeyDigest& second_digest) {
    std::size_t remaining = size;
    std::size_t pos = 0;
    while (remaining >= digest) {
        if (pos + digest > contents.size()) {
            return RegistryOutcome::read_failed;
        }
        const std::size_t key_pos = pos;
        pos += digest;
        remaining -= digest;
        std::size_t second_pos = 0;
        if (kind == RegistryKind::paired) {
            if (remaining < digest) {
                return RegistryOutcome::bad_length;
            }
            if (pos + digest > contents.size()) {
                return RegistryOutcome::read_failed;
            }
            second_pos = pos;
            pos += digest;
            remaining -= digest;
        }
        if (equal_at(contents, key_pos, key_digest)) {
            if (kind == RegistryKind::single || !equal_at(contents, second_pos, second_digest)) {
                return RegistryOutcome::duplicate;
            }
            return RegistryOutcome::reinstall;
        }
    }
    return RegistryOutcome::append;
}

std::vector<std::uint8_t> registry_record(RegistryKind kind, const sapi::KeyDigest& key_digest,
                                          const sapi::KeyDigest& second_digest) {
    std::vector<std::uint8_t> record(key_digest.begin(), key_digest.end());
    if (kind == RegistryKind::paired) {
        record.insert(record.end(), second_digest.begin(), second_digest.end());
    }
    return record;
}

ExitStatus registry_check(const RegistryFiles& files, const sapi::KeyDigest& key_digest,
                          const sapi::KeyDigest& second_digest) {
    // The single registry is in force whenever the program's own one is there, judged afresh
    // each call, so creating it switches every later check to it. A missing registry is an empty
    // one; anything planted at its name is none either (D19).
    Result<StateBytes> held = state_file_read(files.single);
    const bool single = held.ok() && held->has_value();
    if (!single && held.ok()) {
        held = state_file_read(files.paired);
    }
    if (!held.ok()) {
        std::puts("Failed to read from the cryptographic key hash file.");
        return ST_FAILURE;
    }
    const RegistryKind kind = single ? RegistryKind::single : RegistryKind::paired;
    const char* path = single ? files.single : files.paired;
    std::vector<std::uint8_t> contents = held->value_or(std::vector<std::uint8_t>{});

    switch (registry_scan(contents, contents.size(), kind, key_digest, second_digest)) {
        case RegistryOutcome::read_failed:
            std::puts("Failed to read from the cryptographic key hash file.");
            return ST_FAILURE;
        case RegistryOutcome::bad_length:
            std::puts("Invalid cryptographic key hash file length.");
            return ST_FAILURE;
        case RegistryOutcome::duplicate:
            std::puts("FATAL: Duplicate cryptographic key value detected.");
            return ST_DUPLICATE_KEY;
        case RegistryOutcome::reinstall:
            std::puts("WARNING: Cryptographic key is being re-installed.");
            return ST_OK;
        case RegistryOutcome::append:
            break;
    }
    // The record is appended by replacing the whole file, so a reader never meets half a record.
    const std::vector<std::uint8_t> record = registry_record(kind, key_digest, second_digest);
    contents.insert(contents.end(), record.begin(), record.end());
    if (state_file_replace(path, contents) != ST_OK) {
        std::puts("Failed to write to the cryptographic key hash file.");
        return ST_FAILURE;
    }
    return ST_OK;
}

ExitStatus sha256_hash_check(const sapi::KeyDigest& key_digest,
                             const sapi::KeyDigest& second_digest) {
    return registry_check({paths::key_registry_paired, paths::key_registry_single}, key_digest,
                          second_digest);
}
