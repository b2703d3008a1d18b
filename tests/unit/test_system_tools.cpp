// The tool runner's verdicts and the deletion and LED helpers on a private directory.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "system/tools.hpp"
#include "verify/delete.hpp"

namespace fs = std::filesystem;

namespace {

struct RunCase {
    const char* name;
    const char* path;
    std::vector<const char*> argv;
    int expected;
};

void PrintTo(const RunCase& c, std::ostream* os) { *os << c.name; }

class RunTool : public ::testing::TestWithParam<RunCase> {};

TEST_P(RunTool, OnlyACleanExitCountsAsSuccess) {
    const RunCase& c = GetParam();
    EXPECT_EQ(sys_run_tool(c.path, c.argv, ForkFailure::return_failure), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, RunTool,
    ::testing::Values(
        RunCase{"exit_0", "/bin/true", {"true"}, 0},
        RunCase{"exit_1", "/bin/false", {"false"}, 9},
        RunCase{"exit_3", "/bin/sh", {"sh", "-c", "exit 3"}, 9},
        RunCase{"killed", "/bin/sh", {"sh", "-c", "kill -KILL $$"}, 9},
        RunCase{"terminated", "/bin/sh", {"sh", "-c", "kill -TERM $$"}, 9},
        RunCase{"missing_tool", "/nonexistent/tool", {"tool"}, 9},
        RunCase{"relative_path_is_not_searched", "sh", {"sh", "-c", "exit 0"}, 9},
        // The vector arrives element by element, empty and spaced elements included.
        RunCase{"exact_vector", "/bin/sh",
                {"sh", "-c", "[ \"$0\" = name ] && [ $# = 2 ] && [ \"$1\" = 'a b' ] && [ -z \"$2\" ]", "name",
                 "a b", ""},
                0},
        RunCase{"line_end_inside_argument", "/bin/sh",
                {"sh", "-c", "[ \"$1\" = \"$(printf '0x1\\nX')\" ]", "sh", "0x1\nX"}, 0}),
    [](const ::testing::TestParamInfo<RunCase>& info) { return std::string(info.param.name); });

TEST(RunToolOutput, WhatWasPrintedBeforeComesBeforeTheToolsOutput) {
    ::testing::internal::CaptureStdout();
    std::printf("before-");
    const int st = sys_run_tool("/bin/sh", {"sh", "-c", "printf tool"}, ForkFailure::return_failure);
    std::printf("-after");
    std::fflush(stdout);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "before-tool-after");
    EXPECT_EQ(st, 0);
}

class TempDir : public ::testing::Test {
protected:
    void SetUp() override {
        std::string tmpl = (fs::temp_directory_path() / "orvin-sys-XXXXXX").string();
        ASSERT_NE(mkdtemp(tmpl.data()), nullptr);
        dir_ = tmpl;
    }
    void TearDown() override { fs::remove_all(dir_); }

    std::string make(const std::string& name) const {
        const fs::path p = dir_ / name;
        std::ofstream(p) << "x";
        return p.string();
    }

    fs::path dir_;
};

using SigUnlink = TempDir;

TEST_F(SigUnlink, DeletesFileThenSignatureAndNamesTheFirstThatStays) {
    struct Row {
        bool data;
        bool sig;
        int status;
        bool sig_left;
        const char* message;  // %s is the data file's path
    };
    const Row rows[] = {
        {true, true, 0, false, ""},
        {true, false, 9, false, "Failed to delete invalid signature: %s.sig.\n"},
        {false, true, 9, true, "Failed to delete invalid data/executable: %s.\n"},
        {false, false, 9, false, "Failed to delete invalid data/executable: %s.\n"},
    };
    for (const Row& r : rows) {
        const std::string path = (dir_ / "app.bin").string();
        if (r.data) make("app.bin");
        if (r.sig) make("app.bin.sig");
        ::testing::internal::CaptureStdout();
        const int st = file_sig_unlink(path.c_str());
        std::fflush(stdout);
        const std::string out = ::testing::internal::GetCapturedStdout();

        std::string expected = r.message;
        if (const auto at = expected.find("%s"); at != std::string::npos) expected.replace(at, 2, path);
        EXPECT_EQ(st, r.status) << r.data << r.sig;
        EXPECT_EQ(out, expected);
        EXPECT_FALSE(fs::exists(path));
        EXPECT_EQ(fs::exists(path + ".sig"), r.sig_left);
        fs::remove(path + ".sig");
    }
}

class Led : public TempDir {
protected:
    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "giving files to group 500 needs root";
        }
        TempDir::SetUp();
    }

    struct stat info(const char* name) const {
        struct stat st {};
        EXPECT_EQ(lstat((dir_ / name).c_str(), &st), 0) << name;
        return st;
    }
};

TEST_F(Led, AllThreeAttributesGoToRootAndGroup500ReadWrite) {
    for (const char* name : {"brightness", "delay_on", "delay_off"}) {
        make(name);
        ASSERT_EQ(chmod((dir_ / name).c_str(), 0644), 0);
    }
    ASSERT_EQ(set_led_permissions(dir_.c_str()), 0);
    for (const char* name : {"brightness", "delay_on", "delay_off"}) {
        const struct stat st = info(name);
        EXPECT_EQ(st.st_uid, 0u) << name;
        EXPECT_EQ(st.st_gid, 500u) << name;
        EXPECT_EQ(st.st_mode & 07777, 0660u) << name;
    }
}

TEST_F(Led, FirstFailureIsReportedAndLaterAttributesAreLeft) {
    make("brightness");
    make("delay_off");
    ASSERT_EQ(chmod((dir_ / "delay_off").c_str(), 0644), 0);
    ::testing::internal::CaptureStdout();
    const int st = set_led_permissions(dir_.c_str());
    std::fflush(stdout);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "Failed change ownership on " + (dir_ / "delay_on").string() + ".\n");
    EXPECT_EQ(st, 9);
    EXPECT_EQ(info("brightness").st_mode & 07777, 0660u);
    EXPECT_EQ(info("delay_off").st_gid, 0u);
    EXPECT_EQ(info("delay_off").st_mode & 07777, 0644u);
}

}  // namespace
