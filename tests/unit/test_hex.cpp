// The hexadecimal decoder and the four-digit number of KBPK state file names, at their edges.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "base/hex.hpp"

namespace {

using Bytes = std::vector<std::uint8_t>;

// The commands decode whole values; these are the neighbours of each digit range.
TEST(Hex2Bin, OnlyDigitsOfEitherCaseDecode) {
    const struct {
        std::string text;
        int result;
        Bytes decoded;
    } rows[] = {
        {"09afAF", 1, {0x09, 0xAF, 0xAF}}, {"", 1, {}},  {"ABC", 0, {}}, {"/0", 0, {}},
        {":0", 0, {}},  {"@0", 0, {}}, {"G0", 0, {}}, {"`0", 0, {}}, {"g0", 0, {}}, {"0x", 0, {}},
    };
    for (const auto& r : rows) {
        Bytes buf(r.text.begin(), r.text.end());
        EXPECT_EQ(hex2bin(buf.data(), buf.size()), r.result) << r.text;
        if (r.result == 1) {
            EXPECT_EQ(Bytes(buf.begin(), buf.begin() + static_cast<std::ptrdiff_t>(buf.size() / 2)),
                      r.decoded)
                << r.text;
        }
    }
}

TEST(Atobl, FourDecimalDigitsBecomeAHostOrderNumber) {
    const struct {
        const char* text;
        int result;
        std::uint32_t value;
    } rows[] = {{"0042", 1, 42}, {"9999", 1, 9999}, {"12x4", 0, 0}, {"-123", 0, 0},
                {" 123", 0, 0},  {"123/", 0, 0},    {"123:", 0, 0}};
    for (const auto& r : rows) {
        std::uint8_t buf[4];
        std::memcpy(buf, r.text, 4);
        EXPECT_EQ(atobl(buf), r.result) << r.text;
        std::uint32_t got;
        std::memcpy(&got, buf, 4);
        if (r.result == 1) {
            EXPECT_EQ(got, r.value) << r.text;
        } else {
            EXPECT_EQ(std::memcmp(buf, r.text, 4), 0) << r.text;
        }
    }
}

}  // namespace
