// The key hash registry: no key value is installed twice, whatever acquirer or file it comes under.
#include "keys/registry.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "base/fd.hpp"
#include "base/io.hpp"
#include "base/paths.hpp"

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
    // The program's own state: its existence is judged with root rights (D3), afresh each call,
    // so creating the single registry switches every later check to it.
    const bool single = ::access(files.single, F_OK) == 0;
    const RegistryKind kind = single ? RegistryKind::single : RegistryKind::paired;
    const char* path = single ? files.single : files.paired;

    // Append mode: every write lands at the end, reads start at the beginning. A link planted in
    // the state directory must not redirect the append.
    UniqueFd fd(::open(path, O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666));
    if (!fd) {
        std::puts("FATAL: Failed to open the cryptographic key hash file.");
        return ST_FAILURE;
    }
    struct stat st {};
    if (::lstat(path, &st) != 0) {
        std::puts("FATAL: Failed to obtain file information.");
        return ST_FAILURE;
    }
    const auto size = static_cast<std::size_t>(st.st_size);
    std::vector<std::uint8_t> contents(size);
    contents.resize(read_full(fd.get(), contents.data(), contents.size()));

    switch (registry_scan(contents, size, kind, key_digest, second_digest)) {
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
    const std::vector<std::uint8_t> record = registry_record(kind, key_digest, second_digest);
    if (write_full(fd.get(), record.data(), record.size()) != record.size()) {
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
