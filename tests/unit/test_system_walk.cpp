// The file-tree walk every sweep relies on: what it reports, in which order, and how it stops.
#include <ftw.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <new>
#include <string>
#include <vector>

#include "system/walk.hpp"

namespace fs = std::filesystem;

namespace {

class Walk : public ::testing::Test {
protected:
    void SetUp() override {
        std::string tmpl = (fs::temp_directory_path() / "orvin-walk-XXXXXX").string();
        ASSERT_NE(mkdtemp(tmpl.data()), nullptr);
        base_ = tmpl;
        root_ = base_ / "tree";
        fs::create_directories(root_ / "a" / "b");
        fs::create_directories(root_ / "same");
        fs::create_directories(base_ / "outside");
        std::ofstream(root_ / "top");
        std::ofstream(root_ / "a" / "b" / "deep");
        std::ofstream(root_ / "same" / "x");
        std::ofstream(base_ / "outside" / "inside");
        fs::create_symlink(root_ / "top", root_ / "a" / "link-file");
        fs::create_symlink(base_ / "outside", root_ / "a" / "link-dir");
        fs::create_symlink(root_ / "nowhere", root_ / "a" / "dangling");
    }
    void TearDown() override { fs::remove_all(base_); }

    std::string rel(const char* path) const { return fs::path(path).lexically_relative(root_).string(); }

    fs::path base_;
    fs::path root_;
};

TEST_F(Walk, ReportsEveryEntryFollowingLinksButNeverLeavesTheTree) {
    std::map<std::string, int> types;
    std::vector<std::string> order;
    ASSERT_EQ(walk_tree(root_.c_str(),
                        [&](const char* path, const struct stat*, int type) {
                            types[rel(path)] = type;
                            order.push_back(rel(path));
                            return 0;
                        }),
              0);
    const std::map<std::string, int> expected = {
        {".", FTW_D},
        {"top", FTW_F},
        {"a", FTW_D},
        {"a/b", FTW_D},
        {"a/b/deep", FTW_F},
        {"a/link-file", FTW_F},
        {"a/dangling", FTW_SLN},
        {"same", FTW_D},
        {"same/x", FTW_F},
    };
    EXPECT_EQ(types, expected);
    auto pos = [&](const std::string& p) { return std::find(order.begin(), order.end(), p) - order.begin(); };
    EXPECT_LT(pos("a"), pos("a/b"));
    EXPECT_LT(pos("a/b"), pos("a/b/deep"));
}

TEST_F(Walk, StepAskingToStopEndsTheWalkWithNonzero) {
    int files = 0;
    const int r = walk_tree(root_.c_str(), [&](const char*, const struct stat*, int type) {
        return type == FTW_F && ++files == 1 ? 1 : 0;
    });
    EXPECT_NE(r, 0);
    EXPECT_EQ(files, 1);
}

TEST_F(Walk, MissingRootFails) {
    int calls = 0;
    EXPECT_NE(walk_tree((root_ / "absent").c_str(),
                        [&](const char*, const struct stat*, int) {
                            ++calls;
                            return 0;
                        }),
              0);
    EXPECT_EQ(calls, 0);
}

TEST_F(Walk, NestedWalkLeavesTheOuterStepInPlace) {
    int outer = 0;
    int inner = 0;
    ASSERT_EQ(walk_tree(root_.c_str(),
                        [&](const char* path, const struct stat*, int type) {
                            ++outer;
                            if (type == FTW_D && rel(path) == "a/b") {
                                return walk_tree(path, [&](const char*, const struct stat*, int) {
                                    ++inner;
                                    return 0;
                                });
                            }
                            return 0;
                        }),
              0);
    EXPECT_EQ(inner, 2);   // "a/b" and its file
    EXPECT_EQ(outer, 9);  // every entry of the tree, as above
}

TEST_F(Walk, ExceptionFromStepStopsTheWalkAndReachesTheCaller) {
    bool thrown = false;
    int after = 0;
    EXPECT_THROW((void)walk_tree(root_.c_str(),
                                 [&](const char*, const struct stat*, int type) -> int {
                                     if (thrown) {
                                         ++after;
                                     } else if (type == FTW_F) {
                                         thrown = true;
                                         throw std::bad_alloc();
                                     }
                                     return 0;
                                 }),
                 std::bad_alloc);
    EXPECT_TRUE(thrown);
    EXPECT_EQ(after, 0);
    // The walker is usable again afterwards.
    EXPECT_EQ(walk_tree(root_.c_str(), [](const char*, const struct stat*, int) { return 0; }), 0);
}

}  // namespace
