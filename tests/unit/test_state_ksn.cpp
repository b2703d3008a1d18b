// Reading KSN log lines, and the refusals of the log rewrite that come before any file.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

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

TEST(CheckFileLine, MatchesKeyAndInitialKeyAndNamesDamage) {
    const struct {
        std::string line;
        int result;
        std::string printed;
    } rows[] = {
        {"3:ffff9876543210fF1234\n", 0, ""},
        {"3:FFFF9876543210E00001", 0, ""},  // the log's last line may have no line end
        {"\t-0003:FFFF9876543210E00001\n", 1, ""},
        {"4:zz\n", 1, ""},  // another key's data is never looked at
        {"\n", 1, "Corrupt file entry: \n\n"},
        {"3 :FFFF9876543210E00001\n", 1, "Corrupt file entry: 3 :FFFF9876543210E00001\n\n"},
        {"99999999999:FFFF9876543210E00001", 1,
         "Corrupt file entry: 99999999999:FFFF9876543210E00001\n"},
        {"3:FFFF9876543210E0000\n", 1, "Corrupt file data"},
        {"3:FFFF9876543210E0000", 1, "Corrupt file data"},
        {"3:FFFF9876543210E0000G\n", 1, "Corrupt file data"},
    };
    for (const auto& r : rows) {
        ::testing::internal::CaptureStdout();
        EXPECT_EQ(check_file_line(r.line, 3, a), r.result) << r.line;
        EXPECT_EQ(::testing::internal::GetCapturedStdout(), r.printed) << r.line;
    }
}

TEST(GetKsnRegFromStr, DecodesTheDigitsAfterTheFirstColon) {
    Ksn ksn{};
    EXPECT_EQ(get_ksn_reg_from_str("-7:ffff9876543210e00001:00\n", ksn), 0);
    EXPECT_EQ(ksn, a);
    for (const char* bad :
         {"FFFF9876543210E00001", "3:FFFF9876543210E0000", "3:FFFF9876543210E0000\n"}) {
        Ksn untouched = a;
        EXPECT_EQ(get_ksn_reg_from_str(bad, untouched), 1) << bad;
        EXPECT_EQ(untouched, a) << bad;
    }
}

TEST(UpdateKsnData, RefusesMissingParametersAndLongPathsBeforeTouchingFiles) {
    Ksn old{};
    std::uint8_t status = 0;
    const std::string longest = "/nonexistent/" + std::string(ksn::log_path_max - 13, 'k');
    const struct {
        std::uint8_t* status;
        std::string path;
        bool null_path;
        std::string printed;
    } rows[] = {
        {nullptr, "/nonexistent/log", false, "Error invalid input parameters"},
        {&status, "", true, "Error invalid input parameters"},
        {&status, longest + "k", false, "Error input string too long"},
        {&status, longest, false, "Error opening temp file, Error 2\n"},
    };
    for (const auto& r : rows) {
        ::testing::internal::CaptureStdout();
        EXPECT_EQ(update_ksn_data(3, a, old, r.status, r.null_path ? nullptr : r.path.c_str()), 1);
        EXPECT_EQ(::testing::internal::GetCapturedStdout(), r.printed) << r.path.size();
    }
    EXPECT_EQ(status, 0);
    EXPECT_EQ(old, Ksn{});
}

}  // namespace
