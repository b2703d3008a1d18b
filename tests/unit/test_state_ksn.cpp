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

TEST(SameIksn, OnlyTheLeftmost59BitsCount) {
    const struct {
        Ksn other;
        bool same;
    } rows[] = {
        {a, true},
        {with_byte(a, 7, 0xFF), true},  // the counter's five bits of byte 7
        {with_byte(a, 8, 0x12), true},
        {with_byte(a, 9, 0x00), true},
        {with_byte(a, 7, 0xC0), false},  // bit 0x20
        {with_byte(a, 7, 0x60), false},  // bit 0x80
        {with_byte(a, 0, 0x00), false},
        {with_byte(a, 6, 0x11), false},
    };
    for (const auto& r : rows) {
        EXPECT_EQ(same_iksn(a, r.other), r.same);
        EXPECT_EQ(same_iksn(r.other, a), r.same);
    }
}

}  // namespace
