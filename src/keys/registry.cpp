// The key hash registry: no key value is installed twice, whatever acquirer or file it comes under.
#include "keys/registry.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <optional>
#include <utility>

#include "base/caller.hpp"
#include "base/fd.hpp"
#include "base/io.hpp"
#include "base/paths.hpp"
#include "system/state_file.hpp"

namespace {

constexpr std::size_t digest = sapi::digest_size;

bool equal_at(std::span<const std::uint8_t> contents, std::size_t pos, const sapi::KeyDigest& d) {
    return std::equal(d.begin(), d.end(), contents.begin() + static_cast<std::ptrdiff_t>(pos));
}

}  // namespace

RegistryOutcome registry_scan(std::span<const std::uint8_t> contents, RegistryKind kind,
                              const sapi::KeyDigest& key_digest,
                              const sapi::KeyDigest& second_digest) {
    std::size_t pos = 0;
    while (contents.size() - pos >= digest) {
        const std::size_t key_pos = pos;
        pos += digest;
        std::size_t second_pos = 0;
        if (kind == RegistryKind::paired) {
            if (contents.size() - pos < digest) {
                return RegistryOutcome::bad_length;
            }
            second_pos = pos;
            pos += digest;
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

Result<Registry> registry_load(const RegistryFiles& files) {
    // Anything at the single registry's name puts it in force, whatever its type: judged afresh
    // each run, so creating it switches every later check to it.
    struct stat st {};
    const bool single = ::lstat(files.single, &st) == 0;
    Registry registry{single ? RegistryKind::single : RegistryKind::paired,
                      single ? files.single : files.paired, {}};
    const UniqueFd fd(::open(registry.path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd && errno == ENOENT && !single) {
        return registry;
    }
    if (fd && ::fstat(fd.get(), &st) != 0) {
        std::puts("FATAL: Failed to obtain file information.");
        return ST_FAILURE;
    }
    // A link, FIFO or directory there, or a file of another owner, is no registry the program
    // kept; reading it, or a fresh one in its place, would let a key through unchecked.
    if (!fd || !S_ISREG(st.st_mode) || st.st_uid != ids::root) {
        std::puts("FATAL: Failed to open the cryptographic key hash file.");
        return ST_FAILURE;
    }
    // Read whole, at its 64-bit size: a registry cut short in reading would let a key through.
    std::optional<std::vector<std::uint8_t>> contents = read_whole(fd.get(), st.st_size);
    if (!contents) {
        std::puts("FATAL: Failed to open the cryptographic key hash file.");
        return ST_FAILURE;
    }
    registry.contents = std::move(*contents);
    return registry;
}

ExitStatus sha256_hash_check(const Registry& registry, const sapi::KeyDigest& key_digest,
                             const sapi::KeyDigest& second_digest) {
    const std::vector<std::uint8_t>& contents = registry.contents;
    switch (registry_scan(contents, registry.kind, key_digest, second_digest)) {
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
    std::vector<std::uint8_t> grown = contents;
    const std::vector<std::uint8_t> record =
        registry_record(registry.kind, key_digest, second_digest);
    grown.insert(grown.end(), record.begin(), record.end());
    if (state_file_replace(registry.path, grown) != ST_OK) {
        std::puts("Failed to write to the cryptographic key hash file.");
        return ST_FAILURE;
    }
    return ST_OK;
}

Result<Registry> sha256_registry_load() {
    return registry_load({paths::key_registry_paired, paths::key_registry_single});
}
