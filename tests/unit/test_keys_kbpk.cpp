// The KBPK store's names, FLAG texts and the flags a signer's role gives.
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "keys/kbpk.hpp"

namespace {

TEST(KbpkPaths, FourDigitsWithLeadingZeros) {
    EXPECT_EQ(kbpk_state_path(7), "/home/orvin/.sapi/.KBPK0007");
    EXPECT_EQ(kbpk_flag_path(7), "/home/orvin/.sapi/.FLAG0007");
    EXPECT_EQ(kbpk_state_path(0), "/home/orvin/.sapi/.KBPK0000");
    EXPECT_EQ(kbpk_flag_path(255), "/home/orvin/.sapi/.FLAG0255");
}

TEST(KbpkFlagText, UpperCaseHexWithoutLineEnd) {
    EXPECT_EQ(kbpk_flag_text(0), "0000");
    EXPECT_EQ(kbpk_flag_text(0x8000), "8000");
    EXPECT_EQ(kbpk_flag_text(0xABC), "0ABC");
}

struct FlagValueCase {
    const char* name;
    const char* text;  // four characters
    std::uint16_t value;
};

void PrintTo(const FlagValueCase& c, std::ostream* os) {
    *os << c.name;
}

class KbpkFlagValue : public ::testing::TestWithParam<FlagValueCase> {};

TEST_P(KbpkFlagValue, ReadAsHexUpToFirstNonDigit) {
    const FlagValueCase& c = GetParam();
    EXPECT_EQ(kbpk_flag_value(std::span<const char, 4>(c.text, 4)), c.value);
}

INSTANTIATE_TEST_SUITE_P(Cases, KbpkFlagValue,
                         ::testing::Values(FlagValueCase{"on", "8000", 0x8000},
                                           FlagValueCase{"off", "0000", 0},
                                           FlagValueCase{"lower_case", "c000", 0xC000},
                                           FlagValueCase{"not_hex", "zzzz", 0},
                                           FlagValueCase{"stops_at_line_end", "8\n00", 0x8},
                                           FlagValueCase{"stops_at_blank", "80 0", 0x80}),
                         [](const ::testing::TestParamInfo<FlagValueCase>& info) {
                             return std::string(info.param.name);
                         });

TEST(KbpkSignerFlags, RoleDecidesPciPin) {
    EXPECT_EQ(kbpk_signer_flags("HSM-PCI-PIN"), std::optional<std::uint16_t>(0x8000));
    EXPECT_EQ(kbpk_signer_flags("prod-sign"), std::optional<std::uint16_t>(0));
    EXPECT_EQ(kbpk_signer_flags("hsm-pci-pin"), std::optional<std::uint16_t>(0));
    EXPECT_EQ(kbpk_signer_flags("main-user"), std::nullopt);
}

}  // namespace
