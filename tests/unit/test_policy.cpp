// Pure rules of the install destination policy and the shared path helpers.
#include <gtest/gtest.h>

#include "base/shared.hpp"
#include "install/policy.hpp"

namespace {

struct FullPathCase {
    const char* source;
    const char* dest;
    const char* full;
};

class FullPath : public ::testing::TestWithParam<FullPathCase> {};

TEST_P(FullPath, ComposesFromSourceAndDestination) {
    const FullPathCase& c = GetParam();
    EXPECT_EQ(install_full_path(c.source, c.dest), c.full);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, FullPath,
    ::testing::Values(FullPathCase{"/tmp/app", "/usr/local/main-user/bin/", "/usr/local/main-user/bin/app"},
                      FullPathCase{"app", "/usr/local/share/", "/usr/local/share/app"},
                      FullPathCase{"/tmp/app", "/usr/local/share/x", "/usr/local/share/x"},
                      FullPathCase{"/tmp/dir/", "/usr/local/share/", "/usr/local/share/"},
                      FullPathCase{"/tmp/app", "/usr/local/share", "/usr/local/share"}));

struct ComponentCase {
    const char* dest;
    bool bad;
};

class Components : public ::testing::TestWithParam<ComponentCase> {};

TEST_P(Components, EmptyDotAndDotDotAreRefusedFinalSlashIsNot) {
    const ComponentCase& c = GetParam();
    EXPECT_EQ(path_has_bad_component(c.dest), c.bad) << c.dest;
}

INSTANTIATE_TEST_SUITE_P(Cases, Components,
                         ::testing::Values(ComponentCase{"/usr/local/share/x", false},
                                           ComponentCase{"/usr/local/share/", false},
                                           ComponentCase{"/usr/local/share/a/b/", false},
                                           ComponentCase{"/usr/local//share/x", true},
                                           ComponentCase{"/usr/local/share//", true},
                                           ComponentCase{"/usr/local/share/./x", true},
                                           ComponentCase{"/usr/local/share/.", true},
                                           ComponentCase{"/usr/local/share/../etc/x", true},
                                           ComponentCase{"/usr/local/share/..", true},
                                           ComponentCase{"/usr/local/share/..x", false},
                                           ComponentCase{"/usr/local/share/.x", false}));

TEST(SharedHelpers, NamesAndDirectories) {
    EXPECT_EQ(base_name("/a/b/c"), "c");
    EXPECT_EQ(base_name("c"), "c");
    EXPECT_EQ(base_name("/a/b/"), "");
    EXPECT_EQ(dir_part("/a/b/c"), "/a/b/");
    EXPECT_EQ(dir_part("c"), "");
    EXPECT_EQ(cut_at_slash("prod-sign/extra/more"), "prod-sign");
    EXPECT_EQ(cut_at_slash("main-user"), "main-user");
    EXPECT_EQ(cut_at_slash("/lead"), "");
}

}  // namespace
