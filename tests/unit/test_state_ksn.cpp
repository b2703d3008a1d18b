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

TEST(CompareIksn, OnlyTheLeftmost59BitsCount) {
    const struct {
        Ksn other;
        int result;
    } rows[] = {
        {a, 0},
        {with_byte(a, 7, 0xFF), 0},  // the counter's five bits of byte 7
        {with_byte(a, 8, 0x12), 0},
        {with_byte(a, 9, 0x00), 0},
        {with_byte(a, 7, 0xC0), 1},  // bit 0x20
        {with_byte(a, 7, 0x60), 1},  // bit 0x80
        {with_byte(a, 0, 0x00), 1},
        {with_byte(a, 6, 0x11), 1},
    };
    for (const auto& r : rows) {
        EXPECT_EQ(compare_iksn(a, r.other), r.result);
        EXPECT_EQ(compare_iksn(r.other, a), r.result);
    }
}

}  // namespace
