// The hexadecimal decoder and the four-digit number of KBPK state file names, at their edges.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

#include "base/hex.hpp"

namespace {

// The commands decode whole values; the refused texts are the neighbours of each digit range.
TEST(Hex2Bin, OnlyDigitsOfEitherCaseDecode) {
    std::string text = "09afAF";
    ASSERT_TRUE(hex2bin(text));
    EXPECT_EQ(text, "\x09\xAF\xAF");
    for (std::string bad : {"ABC", "/0", ":0", "@0", "G0", "`0", "g0", "0x"}) {
        EXPECT_FALSE(hex2bin(bad)) << bad;
    }
}

// The value atobl stores over the four characters, or nothing when it refuses them, which it must
// then leave as they were.
std::optional<std::uint32_t> atobl_of(const char* text) {
    std::uint8_t buf[4];
    std::memcpy(buf, text, 4);
    if (!atobl(buf)) {
        EXPECT_EQ(std::memcmp(buf, text, 4), 0) << text;
        return std::nullopt;
    }
    std::uint32_t value;
    std::memcpy(&value, buf, 4);
    return value;
}

TEST(Atobl, FourDecimalDigitsBecomeAHostOrderNumber) {
    EXPECT_EQ(atobl_of("0042"), 42u);
    EXPECT_EQ(atobl_of("9999"), 9999u);
    for (const char* bad : {"12x4", "-123", " 123", "123/", "123:"}) {
        EXPECT_EQ(atobl_of(bad), std::nullopt) << bad;
    }
}

}  // namespace
