// Scanning the key hash registry: the edges no installation through the device reaches.
#include <gtest/gtest.h>

#include <vector>

#include "keys/registry.hpp"

namespace {

using Bytes = std::vector<std::uint8_t>;

sapi::KeyDigest digest(std::uint8_t fill) {
    sapi::KeyDigest d{};
    d.fill(fill);
    return d;
}

Bytes bytes(std::initializer_list<sapi::KeyDigest> digests, std::size_t tail = 0) {
    Bytes b;
    for (const auto& d : digests) {
        b.insert(b.end(), d.begin(), d.end());
    }
    b.insert(b.end(), tail, 0xEE);
    return b;
}

TEST(RegistryScan, Edges) {
    const sapi::KeyDigest K = digest(0x11), S = digest(0x22), other = digest(0x33);
    constexpr RegistryKind paired = RegistryKind::paired, single = RegistryKind::single;
    const struct {
        const char* name;
        RegistryKind kind;
        Bytes contents;
        RegistryOutcome outcome;
    } rows[] = {
        // A key digest equal to a stored second digest is no match: records are compared whole.
        {"match_only_in_second_half", paired, bytes({other, K}), RegistryOutcome::append},
        {"trailing_32_is_a_part_record", paired, bytes({other, S}, 32), RegistryOutcome::bad_length},
        {"single_31_bytes_nothing_to_compare", single, Bytes(31, 0x11), RegistryOutcome::append},
    };
    for (const auto& r : rows) {
        EXPECT_EQ(registry_scan(r.contents, r.kind, K, S), r.outcome) << r.name;
    }
}

}  // namespace
