// The command table's shape; dispatch and the usage text are checked on the real program.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "front/commands.hpp"

TEST(CommandTable, EveryRowTakesAFixedCountAndOptionsAreUnique) {
    std::set<std::string> seen;
    for (const CommandEntry& row : cmds) {
        EXPECT_EQ(row.min_args, row.max_args) << row.option;
        EXPECT_GE(row.min_args, 2) << row.option;
        EXPECT_NE(row.handler, nullptr) << row.option;
        EXPECT_TRUE(seen.insert(row.option).second) << row.option;
    }
}
