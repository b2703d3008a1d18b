// The command table against its usage text: every row takes as many parameters as the usage
// names, and the lookup finds a row only with exactly those.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "front/commands.hpp"

namespace {

std::size_t named_params(const char* usage) {
    const std::string_view text(usage);
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '<'));
}

TEST(CommandTable, EachRowTakesTheParametersItsUsageNames) {
    std::set<std::string_view> options;
    for (const CommandEntry& row : commands()) {
        EXPECT_TRUE(options.insert(row.option).second) << row.option;
        EXPECT_EQ(row.param_count, named_params(row.params)) << row.option;
        EXPECT_NE(row.run, nullptr) << row.option;
    }
    EXPECT_EQ(options.size(), 28U);
}

TEST(CommandTable, LookupNeedsTheExactParameterCount) {
    for (const CommandEntry& row : commands()) {
        std::string option(row.option);
        std::vector<std::string> words{"orvin-auth", option};
        for (std::size_t extra = 0; extra <= row.param_count + 1; ++extra) {
            std::vector<char*> argv;
            for (std::string& w : words) {
                argv.push_back(w.data());
            }
            argv.push_back(nullptr);
            const CommandEntry* found = find_command(static_cast<int>(words.size()), argv.data());
            EXPECT_EQ(found, extra == row.param_count ? &row : nullptr)
                << row.option << " with " << extra;
            words.emplace_back("p");
        }
    }
    std::string name = "orvin-auth";
    std::string upper = "--AUTHENTICATE";
    char* only_name[] = {name.data(), nullptr};
    char* wrong_case[] = {name.data(), upper.data(), nullptr};
    EXPECT_EQ(find_command(1, only_name), nullptr);
    EXPECT_EQ(find_command(2, wrong_case), nullptr);
}

}  // namespace
