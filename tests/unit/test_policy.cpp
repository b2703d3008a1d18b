// Install destination rules the system tests leave out: relative and directory sources, and the
// path components at the very end. Links (D7) are checked on the real program.
#include <gtest/gtest.h>

#include "base/path_rules.hpp"

TEST(InstallPolicy, FullPathComesFromSourceAndDestination) {
    EXPECT_EQ(install_full_path("app", "/usr/local/share/"), "/usr/local/share/app");
    EXPECT_EQ(install_full_path("/tmp/dir/", "/usr/local/share/"), "/usr/local/share/");
    EXPECT_EQ(install_full_path("/tmp/app", "/usr/local/share"), "/usr/local/share");
}

TEST(InstallPolicy, EmptyDotAndDotDotComponentsAreRefusedFinalSlashIsNot) {
    const struct {
        const char* dest;
        bool bad;
    } rows[] = {{"/usr/local/share/a/b/", false},
                {"/usr/local/share/.x", false},
                {"/usr/local/share//", true},
                {"/usr/local/share/.", true},
                {"/usr/local/share/..", true}};
    for (const auto& r : rows) {
        EXPECT_EQ(path_has_bad_component(r.dest), r.bad) << r.dest;
    }
}
