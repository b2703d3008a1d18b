// The hexadecimal decoder and the four-digit number of KBPK state file names, at their edges.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "base/hex.hpp"

namespace {

// Whole values of either case decode in the certificate restore and terminal key tests; here, the
// neighbours of each digit range are refused.
TEST(Hex2Bin, OnlyDigitsOfEitherCaseDecode) {
    for (std::string bad : {"ABC", "/0", ":0", "@0", "G0", "`0", "g0", "0x"}) {
        EXPECT_FALSE(hex2bin(bad)) << bad;
    }
}

// ".KBPK0000", ".KBPK0003" and ".KBPK0200" come back as their numbers in the key restore tests;
// a refused text must be left as it was.
TEST(Atobl, OnlyFourDecimalDigitsAreANumber) {
    for (const char* bad : {"12x4", "-123", " 123", "123/", "123:"}) {
        std::uint8_t buf[4];
        std::memcpy(buf, bad, 4);
        EXPECT_FALSE(atobl(buf)) << bad;
        EXPECT_EQ(std::memcmp(buf, bad, 4), 0) << bad;
    }
}

}  // namespace
