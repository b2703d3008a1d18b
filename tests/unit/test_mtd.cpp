// Finding a partition in the text of the MTD table.
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "system/mtd.hpp"

TEST(MtdFind, FirstLineWithFragmentAndColonDecides) {
    const struct {
        std::string table;
        const char* fragment;
        const char* device;  // nullptr: not found
        const char* length;
    } rows[] = {
        {"mtd99: 00020000 00020000 \"kernel\"\n", "kernel", "/dev/mtd99", "0x00020000\n"},
        {"mtd4: 0123456789 00020000 \"x\"\n", "\"x\"", "/dev/mtd4", "0x01234567\n"},
        // A short size field runs into the line end, which the tools receive as well.
        {"mtd4: 0080\n", "mtd4", "/dev/mtd4", "0x0080\n\n"},
        {"mtd4: 0080", "mtd4", "/dev/mtd4", "0x0080\n"},
        {"mtd4:\n", "mtd4", "/dev/mtd4", "0x\n"},
        {"mtd4:", "mtd4", "/dev/mtd4", "0x\n"},
        {"mtd2: 00040000 00020000 \"a:b\"\n", "a:b", "/dev/mtd2", "0x00040000\n"},
        {"dev:    size   erasesize  name\nmtd4: 00800000 00020000 \"erasesize\"\n", "erasesize",
         "/dev/dev", "0x   size \n"},
        {"screens without colon\nmtd12: 00800000 00020000 \"screens\"\n", "screens", "/dev/mtd12",
         "0x00800000\n"},
        // The first line that names it decides, even when its device name is too long for us.
        {"mtd123: 00800000 00020000 \"screens\"\nmtd4: 00800000 00020000 \"screens\"\n", "screens",
         nullptr, nullptr},
        {"mtd4: 00800000 00020000 \"Screens\"\n", "screens", nullptr, nullptr},
    };
    for (const auto& r : rows) {
        const std::optional<MtdPartition> got = mtd_find(r.table, r.fragment);
        ASSERT_EQ(got.has_value(), r.device != nullptr) << r.table;
        if (got) {
            EXPECT_EQ(got->device, r.device) << r.table;
            EXPECT_EQ(got->length_arg, r.length) << r.table;
        }
    }
}
