// FLAG file texts beyond the two the program writes.
#include <gtest/gtest.h>

#include <span>

#include "keys/kbpk.hpp"

TEST(KbpkFlags, TextIsReadAsHexUpToTheFirstNonDigit) {
    const struct {
        const char* text;  // four characters
        std::uint16_t value;
    } rows[] = {{"c000", 0xC000}, {"8\n00", 0x8}, {"80 0", 0x80}, {"zzzz", 0}};
    for (const auto& r : rows) {
        EXPECT_EQ(kbpk_flag_value(std::span<const char, 4>(r.text, 4)), r.value) << r.text;
    }
}
