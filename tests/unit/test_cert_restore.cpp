// Which nvram values become certificate files.
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "certs/cert_restore.hpp"

namespace {

struct NvramCase {
    const char* name;
    std::string line;
    std::optional<std::string> file;
};

void PrintTo(const NvramCase& c, std::ostream* os) {
    *os << c.name;
}

class CertFromNvram : public ::testing::TestWithParam<NvramCase> {};

TEST_P(CertFromNvram, LastCharacterGoesThenHexDecodes) {
    const NvramCase& c = GetParam();
    EXPECT_EQ(cert_from_nvram_line(c.line), c.file);
}

std::string repeat(const char* pair, std::size_t pairs) {
    std::string s;
    for (std::size_t i = 0; i < pairs; ++i) {
        s += pair;
    }
    return s;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, CertFromNvram,
    ::testing::Values(
        NvramCase{"both_cases", "2d2D41\n", std::string("--A")},
        NvramCase{"line_end_only_is_an_empty_file", "\n", std::string()},
        NvramCase{"nothing", "", std::string()},
        NvramCase{"no_line_end_loses_a_digit", "2d2d", std::nullopt},
        NvramCase{"odd_length", "2d2\n", std::nullopt},
        NvramCase{"not_hexadecimal", "2g\n", std::nullopt},
        NvramCase{"carriage_return_stays_and_fails", "2d\r\n", std::nullopt},
        NvramCase{"longest_even_value", repeat("41", 2047) + "\n", std::string(2047, 'A')},
        NvramCase{"4095_characters_is_odd", repeat("41", 2047) + "4\n", std::nullopt},
        NvramCase{"4096_characters_is_too_long", repeat("41", 2048) + "\n", std::nullopt},
        NvramCase{"far_too_long", repeat("41", 4096) + "\n", std::nullopt}));

}  // namespace
