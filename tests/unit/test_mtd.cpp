// Finding a partition in the text of the MTD table.
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "system/mtd.hpp"

namespace {

constexpr const char* header = "dev:    size   erasesize  name\n";

struct MtdCase {
    const char* name;
    std::string table;
    const char* fragment;
    std::optional<MtdPartition> expected;
};

std::optional<MtdPartition> found(const char* device, const char* length) {
    return MtdPartition{device, length};
}

void PrintTo(const MtdCase& c, std::ostream* os) { *os << c.name; }

class MtdFind : public ::testing::TestWithParam<MtdCase> {};

TEST_P(MtdFind, FirstLineWithFragmentAndColonDecides) {
    const MtdCase& c = GetParam();
    const std::optional<MtdPartition> got = mtd_find(c.table, c.fragment);
    ASSERT_EQ(got.has_value(), c.expected.has_value());
    if (got) {
        EXPECT_EQ(got->device, c.expected->device);
        EXPECT_EQ(got->length_arg, c.expected->length_arg);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, MtdFind,
    ::testing::Values(
        MtdCase{"plain", std::string(header) + "mtd4: 00800000 00020000 \"screens\"\n", "screens",
                found("/dev/mtd4", "0x00800000\n")},
        MtdCase{"first_match_in_file_order",
                std::string(header) + "mtd1: 00100000 00020000 \"old-screens\"\n"
                                      "mtd4: 00800000 00020000 \"screens\"\n",
                "screens", found("/dev/mtd1", "0x00100000\n")},
        MtdCase{"line_without_colon_is_skipped",
                "screens without colon\nmtd12: 00400000 00020000 \"screens\"\n", "screens",
                found("/dev/mtd12", "0x00400000\n")},
        MtdCase{"six_character_device_is_not_found_and_stops_the_search",
                "mtd123: 00800000 00020000 \"screens\"\nmtd4: 00800000 00020000 \"screens\"\n",
                "screens", std::nullopt},
        MtdCase{"five_character_device_fits", "mtd99: 00020000 00020000 \"kernel\"\n", "kernel",
                found("/dev/mtd99", "0x00020000\n")},
        MtdCase{"size_field_is_cut_at_eight", "mtd4: 0123456789 00020000 \"x\"\n", "\"x\"",
                found("/dev/mtd4", "0x01234567\n")},
        // A short size field runs into the line end, which the tools receive as well.
        MtdCase{"short_size_field_keeps_line_end", "mtd4: 0080\n", "mtd4", found("/dev/mtd4", "0x0080\n\n")},
        MtdCase{"short_last_line_without_line_end", "mtd4: 0080", "mtd4", found("/dev/mtd4", "0x0080\n")},
        MtdCase{"nothing_after_colon", "mtd4:\n", "mtd4", found("/dev/mtd4", "0x\n")},
        MtdCase{"colon_without_space_at_end", "mtd4:", "mtd4", found("/dev/mtd4", "0x\n")},
        MtdCase{"cut_at_first_colon", "mtd2: 00040000 00020000 \"a:b\"\n", "a:b",
                found("/dev/mtd2", "0x00040000\n")},
        MtdCase{"header_line_can_match", std::string(header) + "mtd4: 00800000 00020000 \"erasesize\"\n",
                "erasesize", found("/dev/dev", "0x   size \n")},
        MtdCase{"search_is_case_sensitive", "mtd4: 00800000 00020000 \"Screens\"\n", "screens",
                std::nullopt},
        MtdCase{"no_match", std::string(header) + "mtd4: 00800000 00020000 \"other\"\n", "screens",
                std::nullopt},
        MtdCase{"empty_table", "", "screens", std::nullopt}),
    [](const ::testing::TestParamInfo<MtdCase>& info) { return std::string(info.param.name); });

}  // namespace
