// The file-tree walk under every sweep: links out of the tree are not followed, and a step that
// says stop ends the walk.
#include <ftw.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "system/walk.hpp"

namespace fs = std::filesystem;

TEST(Walk, StaysInTheTreeAndStopsWhenAStepSays) {
    std::string tmpl = (fs::temp_directory_path() / "orvin-walk-XXXXXX").string();
    ASSERT_NE(mkdtemp(tmpl.data()), nullptr);
    const fs::path base = tmpl, root = base / "tree";
    fs::create_directories(root / "a");
    fs::create_directories(base / "outside");
    std::ofstream(root / "top");
    std::ofstream(base / "outside" / "inside");
    fs::create_symlink(root / "top", root / "a" / "link-file");
    fs::create_symlink(base / "outside", root / "a" / "link-dir");
    fs::create_symlink(root / "nowhere", root / "a" / "dangling");

    std::map<std::string, int> types;
    ASSERT_EQ(walk_tree(root.c_str(),
                        [&](const char* path, const struct stat*, int type) {
                            types[fs::path(path).lexically_relative(root).string()] = type;
                            return WalkStep::go_on;
                        }),
              ST_OK);
    const std::map<std::string, int> expected = {{".", FTW_D},
                                                 {"top", FTW_F},
                                                 {"a", FTW_D},
                                                 {"a/link-file", FTW_F},
                                                 {"a/dangling", FTW_SLN}};
    EXPECT_EQ(types, expected);

    int files = 0;
    EXPECT_EQ(walk_tree(root.c_str(),
                        [&](const char*, const struct stat*, int type) {
                            return type == FTW_F && ++files == 1 ? WalkStep::stop : WalkStep::go_on;
                        }),
              ST_FAILURE);
    EXPECT_EQ(files, 1);
    fs::remove_all(base);
}
