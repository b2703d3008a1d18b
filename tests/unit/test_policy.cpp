// Pure rules of the install destination policy and the shared path helpers.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

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

namespace {

// The D7 resolution on a real directory tree: the deepest existing entry is resolved through its
// links and the rest appended.
class StaysInside : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/orvin-policy-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        root_ = tmpl;
        ASSERT_EQ(mkdir((root_ + "/area").c_str(), 0755), 0);
        ASSERT_EQ(mkdir((root_ + "/area/real").c_str(), 0755), 0);
        ASSERT_EQ(mkdir((root_ + "/outside").c_str(), 0755), 0);
        ASSERT_EQ(symlink((root_ + "/outside").c_str(), (root_ + "/area/out").c_str()), 0);
        ASSERT_EQ(symlink((root_ + "/area/real").c_str(), (root_ + "/area/alias").c_str()), 0);
        ASSERT_EQ(symlink("/nonexistent/x", (root_ + "/area/dangling").c_str()), 0);
    }
    void TearDown() override {
        std::string cmd = "rm -rf '" + root_ + "'";
        ASSERT_EQ(std::system(cmd.c_str()), 0);
    }
    [[nodiscard]] bool inside(const std::string& rel) const {
        return path_stays_inside(root_ + rel, root_ + "/area/");
    }
    std::string root_;
};

TEST_F(StaysInside, NewPathsBelowTheAreaStayInside) {
    EXPECT_TRUE(inside("/area/x"));
    EXPECT_TRUE(inside("/area/new/deeper/x"));
    EXPECT_TRUE(inside("/area/real/x"));
    EXPECT_TRUE(inside("/area/alias/new/x"));
}

TEST_F(StaysInside, LinksOutOfTheAreaDoNot) {
    EXPECT_FALSE(inside("/area/out/x"));
    EXPECT_FALSE(inside("/area/out/new/x"));
    EXPECT_FALSE(inside("/area/dangling/x"));
    EXPECT_FALSE(inside("/outside/x"));
}

}  // namespace
