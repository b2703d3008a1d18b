// The hexadecimal codec and the four-digit number of KBPK state file names.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "keys/hex.hpp"

namespace {

std::vector<std::uint8_t> bytes(const std::string& s) {
    return {s.begin(), s.end()};
}

struct Hex2BinCase {
    const char* name;
    std::string text;
    int result;
    // The whole buffer afterwards: decoded bytes first, then what is left of the text.
    std::vector<std::uint8_t> after;
};

void PrintTo(const Hex2BinCase& c, std::ostream* os) {
    *os << c.name;
}

class Hex2Bin : public ::testing::TestWithParam<Hex2BinCase> {};

TEST_P(Hex2Bin, DecodesInPlaceAndZeroesWhatItRead) {
    const Hex2BinCase& c = GetParam();
    std::vector<std::uint8_t> buf = bytes(c.text);
    EXPECT_EQ(hex2bin(buf.data(), buf.size()), c.result);
    EXPECT_EQ(buf, c.after);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, Hex2Bin,
    ::testing::Values(Hex2BinCase{"both_cases", "0aFf", 1, {0x0A, 0xFF, 0, 0}},
                      Hex2BinCase{"every_digit",
                                  "0123456789abcdefABCDEF",
                                  1,
                                  {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0xAB, 0xCD, 0xEF,
                                   0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0}},
                      Hex2BinCase{"empty", "", 1, {}},
                      Hex2BinCase{"odd_length_changes_nothing", "ABC", 0, bytes("ABC")},
                      Hex2BinCase{"odd_length_with_bad_digit", "zz1", 0, bytes("zz1")},
                      Hex2BinCase{"bad_second_digit", "AG", 0, {0, 'G'}},
                      Hex2BinCase{"bad_digit_later", "12g4", 0, {0x12, 0, 'g', '4'}},
                      Hex2BinCase{"letter_after_f", "0x", 0, {0, 'x'}},
                      Hex2BinCase{"blank", "1 ", 0, {0, ' '}},
                      Hex2BinCase{"bad_first_digit", "/0", 0, {'/', '0'}},
                      Hex2BinCase{"colon_after_nine", ":0", 0, {':', '0'}},
                      Hex2BinCase{"at_before_a", "@0", 0, {'@', '0'}},
                      Hex2BinCase{"backtick_before_a", "`0", 0, {'`', '0'}}));

TEST(Hex2BinString, DecodedBytesReplaceTheText) {
    std::string text = "00ff7F";
    ASSERT_EQ(hex2bin(text), 1);
    EXPECT_EQ(text, std::string("\x00\xff\x7f", 3));
    std::string odd = "abc";
    EXPECT_EQ(hex2bin(odd), 0);
    EXPECT_EQ(odd, "abc");
}

struct Bin2HexCase {
    const char* name;
    std::vector<std::uint8_t> in;
    std::size_t len;
    std::string out;
};

void PrintTo(const Bin2HexCase& c, std::ostream* os) {
    *os << c.name;
}

class Bin2Hex : public ::testing::TestWithParam<Bin2HexCase> {};

TEST_P(Bin2Hex, ExpandsInPlaceUpperCaseWithoutTerminator) {
    const Bin2HexCase& c = GetParam();
    std::vector<std::uint8_t> buf = c.in;
    buf.resize(c.out.size() + 1, '#');
    EXPECT_EQ(bin2hex(buf.data(), c.len), 1);
    EXPECT_EQ(std::string(buf.begin(), buf.end() - 1), c.out);
    EXPECT_EQ(buf.back(), '#');
}

INSTANTIATE_TEST_SUITE_P(
    Cases, Bin2Hex,
    ::testing::Values(Bin2HexCase{"two_bytes", {0x0A, 0xFF}, 4, "0AFF"},
                      Bin2HexCase{"nibbles_in_order", {0x12, 0x34, 0xAB, 0xCD}, 8, "1234ABCD"},
                      Bin2HexCase{"zero_byte", {0x00}, 2, "00"}, Bin2HexCase{"empty", {}, 0, ""}));

TEST(HexRoundTrip, EveryByteValueSurvives) {
    std::vector<std::uint8_t> buf(512);
    for (std::size_t i = 0; i < 256; ++i) {
        buf[i] = static_cast<std::uint8_t>(i);
    }
    ASSERT_EQ(bin2hex(buf.data(), buf.size()), 1);
    ASSERT_EQ(hex2bin(buf.data(), buf.size()), 1);
    for (std::size_t i = 0; i < 256; ++i) {
        ASSERT_EQ(buf[i], i);
    }
}

struct AtoblCase {
    const char* text;
    int result;
    std::uint32_t value;
};

class Atobl : public ::testing::TestWithParam<AtoblCase> {};

TEST_P(Atobl, FourDecimalDigitsBecomeAHostOrderNumber) {
    const AtoblCase& c = GetParam();
    std::uint8_t buf[4];
    std::memcpy(buf, c.text, 4);
    EXPECT_EQ(atobl(buf), c.result);
    if (c.result == 1) {
        std::uint32_t got;
        std::memcpy(&got, buf, 4);
        EXPECT_EQ(got, c.value);
    } else {
        EXPECT_EQ(std::memcmp(buf, c.text, 4), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Cases, Atobl,
                         ::testing::Values(AtoblCase{"0042", 1, 42}, AtoblCase{"0000", 1, 0},
                                           AtoblCase{"9999", 1, 9999}, AtoblCase{"1000", 1, 1000},
                                           AtoblCase{"12x4", 0, 0}, AtoblCase{"-123", 0, 0},
                                           AtoblCase{" 123", 0, 0}, AtoblCase{"123/", 0, 0},
                                           AtoblCase{"123:", 0, 0}));

}  // namespace
