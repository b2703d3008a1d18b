// The installed name from relative and directory sources, which no command passes; the rest of
// the destination rules, links (D7) included, are checked on the real program.
#include <gtest/gtest.h>

#include "base/path_rules.hpp"

TEST(InstallPolicy, FullPathComesFromSourceAndDestination) {
    EXPECT_EQ(install_full_path("app", "/usr/local/share/"), "/usr/local/share/app");
    EXPECT_EQ(install_full_path("/tmp/dir/", "/usr/local/share/"), "/usr/local/share/");
    EXPECT_EQ(install_full_path("/tmp/app", "/usr/local/share"), "/usr/local/share");
}
