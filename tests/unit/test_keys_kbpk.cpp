// FLAG file texts and signer roles beyond those the KBPK commands are run with.
#include <gtest/gtest.h>

#include <optional>

#include "keys/kbpk.hpp"

TEST(KbpkFlags, TextIsReadAsHexUpToTheFirstNonDigit) {
    const struct {
        const char* text;  // four characters
        std::uint16_t value;
    } rows[] = {{"c000", 0xC000}, {"8\n00", 0x8}, {"80 0", 0x80}, {"zzzz", 0}};
    for (const auto& r : rows) {
        EXPECT_EQ(kbpk_flag_value(std::span<const char, 4>(r.text, 4)), r.value) << r.text;
    }
    EXPECT_EQ(kbpk_flag_text(0xABC), "0ABC");
}

TEST(KbpkFlags, RoleDecidesPciPinAndCaseMatters) {
    EXPECT_EQ(kbpk_signer_flags("HSM-PCI-PIN"), std::optional<std::uint16_t>(0x8000));
    EXPECT_EQ(kbpk_signer_flags("hsm-pci-pin"), std::optional<std::uint16_t>(0));
    EXPECT_EQ(kbpk_signer_flags("main-user"), std::nullopt);
}
