// Which bits of a KSN name its initial key; reading and rewriting the log runs end to end.
#include <gtest/gtest.h>

#include <cstdint>

#include "state/ksn.hpp"

namespace {

const Ksn a = {0xFF, 0xFF, 0x98, 0x76, 0x54, 0x32, 0x10, 0xE0, 0x00, 0x01};

Ksn with_byte(Ksn ksn, std::size_t i, std::uint8_t value) {
    ksn[i] = value;
    return ksn;
}

// That the counter bits do not count is shown by the log rewrite's system tests.
TEST(SameIksn, EveryBitOfTheInitialKeyCounts) {
    const Ksn others[] = {
        with_byte(a, 7, 0x60),  // bit 0x80
        with_byte(a, 7, 0xC0),  // bit 0x20
        with_byte(a, 0, 0x00),
        with_byte(a, 6, 0x11),
    };
    for (const Ksn& other : others) {
        EXPECT_FALSE(same_iksn(a, other));
        EXPECT_FALSE(same_iksn(other, a));
    }
}

}  // namespace
