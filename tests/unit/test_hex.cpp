// The hexadecimal codec and the four-digit number of KBPK state file names.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "base/hex.hpp"

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes bytes(const std::string& s) {
    return {s.begin(), s.end()};
}

TEST(Hex2Bin, DecodesInPlaceAndZeroesWhatItRead) {
    const struct {
        std::string text;
        int result;
        Bytes after;  // the whole buffer: decoded bytes first, then what is left of the text
    } rows[] = {
        // Upper-case digits and every byte value round-trip below.
        {"abcdef", 1, {0xAB, 0xCD, 0xEF, 0, 0, 0}},
        {"0aFf", 1, {0x0A, 0xFF, 0, 0}},
        {"", 1, {}},
        {"ABC", 0, bytes("ABC")},  // odd length changes nothing
        {"zz1", 0, bytes("zz1")},
        {"AG", 0, {0, 'G'}},
        {"12g4", 0, {0x12, 0, 'g', '4'}},
        {"1 ", 0, {0, ' '}},
        // The neighbours of each digit range.
        {"/0", 0, {'/', '0'}},
        {":0", 0, {':', '0'}},
        {"@0", 0, {'@', '0'}},
        {"`0", 0, {'`', '0'}},
        {"0x", 0, {0, 'x'}},
    };
    for (const auto& r : rows) {
        Bytes buf = bytes(r.text);
        EXPECT_EQ(hex2bin(buf.data(), buf.size()), r.result) << r.text;
        EXPECT_EQ(buf, r.after) << r.text;
    }
}

TEST(Bin2Hex, UpperCaseInPlaceWithoutTerminatorAndEveryByteRoundTrips) {
    Bytes buf = {0x0A, 0xFF, '#', '#', '#'};
    EXPECT_EQ(bin2hex(buf.data(), 4), 1);
    EXPECT_EQ(buf, bytes("0AFF#"));

    Bytes all(512);
    for (std::size_t i = 0; i < 256; ++i) {
        all[i] = static_cast<std::uint8_t>(i);
    }
    ASSERT_EQ(bin2hex(all.data(), all.size()), 1);
    ASSERT_EQ(hex2bin(all.data(), all.size()), 1);
    for (std::size_t i = 0; i < 256; ++i) {
        ASSERT_EQ(all[i], i);
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
