// The acquirer ID rule at the edges the key commands ("0", "256", "-1", "" as the application
// user) and the fuzz target's range checks do not reach.
#include <gtest/gtest.h>

#include <optional>

#include "keys/acquirer.hpp"

TEST(AcquirerId, AcceptedValueOrRefusal) {
    constexpr uid_t root = 0, app = 500;
    const struct {
        const char* text;
        uid_t uid;
        std::optional<int> expected;
    } rows[] = {
        {"0X1f", app, 31},
        {"255", app, 255},
        {"7a", app, std::nullopt},
        {"08", root, std::nullopt},
        {"-4294967295", root, std::nullopt},  // wraps to a small value, still refused
        {"0x0", app, std::nullopt},
        {"9", 1000, 9},
        {"017", app, 15},
        {" 7", app, 7},
        {"7 ", root, std::nullopt},
        {"0x", root, std::nullopt},
        {"", root, 0},  // acquirer 0 is root's alone
    };
    for (const auto& r : rows) {
        EXPECT_EQ(acquirer_id_parse(r.text, r.uid), r.expected) << r.text << " as " << r.uid;
    }
}
