// The acquirer ID rule of the KBPK and key commands.
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "keys/acquirer.hpp"

namespace {

struct AcquirerCase {
    const char* name;
    const char* text;
    uid_t uid;
    std::optional<int> expected;
};

void PrintTo(const AcquirerCase& c, std::ostream* os) {
    *os << c.name;
}

class AcquirerId : public ::testing::TestWithParam<AcquirerCase> {};

TEST_P(AcquirerId, AcceptedValueOrRefusal) {
    const AcquirerCase& c = GetParam();
    EXPECT_EQ(acquirer_id_parse(c.text, c.uid), c.expected);
}

constexpr uid_t root = 0;
constexpr uid_t app = 500;

INSTANTIATE_TEST_SUITE_P(
    Cases, AcquirerId,
    ::testing::Values(AcquirerCase{"decimal", "7", app, 7}, AcquirerCase{"hex", "0x1F", app, 31},
                      AcquirerCase{"hex_upper_prefix", "0X1f", app, 31},
                      AcquirerCase{"octal", "017", app, 15},
                      AcquirerCase{"largest", "255", app, 255},
                      AcquirerCase{"too_large", "256", root, std::nullopt},
                      AcquirerCase{"negative", "-1", root, std::nullopt},
                      AcquirerCase{"leading_blank_skipped", " 7", app, 7},
                      AcquirerCase{"trailing_blank", "7 ", app, std::nullopt},
                      AcquirerCase{"trailing_letter", "7a", app, std::nullopt},
                      AcquirerCase{"bad_octal_digit", "08", root, std::nullopt},
                      AcquirerCase{"prefix_without_digits", "0x", root, std::nullopt},
                      AcquirerCase{"overflow", "99999999999999999999", root, std::nullopt},
                      AcquirerCase{"wraps_to_small_value_still_refused", "-4294967295", root,
                                   std::nullopt},
                      AcquirerCase{"empty_is_zero_for_root", "", root, 0},
                      AcquirerCase{"empty_refused_for_app", "", app, std::nullopt},
                      AcquirerCase{"zero_for_root", "0", root, 0},
                      AcquirerCase{"zero_refused_for_app", "0", app, std::nullopt},
                      AcquirerCase{"hex_zero_refused_for_app", "0x0", app, std::nullopt},
                      AcquirerCase{"other_user_gets_ids_too", "9", 1000, 9}),
    [](const ::testing::TestParamInfo<AcquirerCase>& info) {
        return std::string(info.param.name);
    });

}  // namespace
