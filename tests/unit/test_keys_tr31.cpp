// The outer shape of KBPK files and TR-31 key blocks.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "keys/tr31.hpp"

namespace {

struct ShapeCase {
    const char* name;
    std::string head;  // the first five bytes
    std::uint64_t size;
    Tr31Fault fault;
};

void PrintTo(const ShapeCase& c, std::ostream* os) {
    *os << c.name;
}

// The whole check as the file sees it: size first, then the head.
Tr31Fault shape_fault(const ShapeCase& c) {
    if (Tr31Fault f = tr31_size_fault(c.size); f != Tr31Fault::none) {
        return f;
    }
    std::array<std::uint8_t, tr31::head_size> head{};
    std::copy(c.head.begin(), c.head.end(), head.begin());
    return tr31_head_fault(head, c.size);
}

class Tr31Shape : public ::testing::TestWithParam<ShapeCase> {};

TEST_P(Tr31Shape, FirstFaultWins) {
    EXPECT_EQ(shape_fault(GetParam()), GetParam().fault);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, Tr31Shape,
    ::testing::Values(ShapeCase{"smallest_block", "B0056", 56, Tr31Fault::none},
                      ShapeCase{"version_0", "00112", 112, Tr31Fault::none},
                      ShapeCase{"version_A", "A0112", 112, Tr31Fault::none},
                      ShapeCase{"version_C", "C0112", 112, Tr31Fault::none},
                      ShapeCase{"largest_block_that_fits", "B4088", 4088, Tr31Fault::none},
                      ShapeCase{"size_55_refused_before_head", "B0055", 55, Tr31Fault::size},
                      ShapeCase{"empty", "", 0, Tr31Fault::size},
                      ShapeCase{"D10_over_4088", "B4096", 4096, Tr31Fault::size},
                      ShapeCase{"D10_one_over", "B4089", 4089, Tr31Fault::size},
                      ShapeCase{"version_D", "D0112", 112, Tr31Fault::version},
                      ShapeCase{"lower_case_b", "b0112", 112, Tr31Fault::version},
                      ShapeCase{"version_1", "10112", 112, Tr31Fault::version},
                      ShapeCase{"line_end_after_block", "A0112", 113, Tr31Fault::length},
                      ShapeCase{"not_multiple_of_8", "B0060", 60, Tr31Fault::length},
                      ShapeCase{"length_differs_from_size", "B0064", 72, Tr31Fault::length},
                      ShapeCase{"blank_in_length", "B 112", 112, Tr31Fault::length_field},
                      ShapeCase{"letter_in_length", "B01x2", 112, Tr31Fault::length_field},
                      ShapeCase{"version_checked_before_length", "D01x2", 112, Tr31Fault::version}),
    [](const ::testing::TestParamInfo<ShapeCase>& info) { return std::string(info.param.name); });

TEST(Tr31Messages, EveryFaultHasItsLine) {
    EXPECT_EQ(tr31_fault_message(Tr31Fault::none), nullptr);
    EXPECT_STREQ(tr31_fault_message(Tr31Fault::size), "Invalid TR-31 file size.");
    EXPECT_STREQ(tr31_fault_message(Tr31Fault::version), "Invalid TR-31 version ID.");
    EXPECT_STREQ(tr31_fault_message(Tr31Fault::length_field), "Invalid TR-31 length field.");
    EXPECT_STREQ(tr31_fault_message(Tr31Fault::length), "Invalid TR-31 length.");
}

// The file checks on real files; the test process is its own caller.
class KeyFileCheck : public ::testing::Test {
  protected:
    void SetUp() override {
        char tmpl[] = "/tmp/orvin-tr31-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
    }
    void TearDown() override { std::filesystem::remove_all(dir_); }

    std::string file(const std::string& name, const std::string& content) {
        std::string path = dir_ + "/" + name;
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }

    template <typename F>
    std::pair<ExitStatus, std::string> checked(F check, const std::string& path) {
        ::testing::internal::CaptureStdout();
        ExitStatus st = check(path.c_str());
        std::fflush(stdout);
        return {st, ::testing::internal::GetCapturedStdout()};
    }

    std::string dir_;
};

TEST_F(KeyFileCheck, KeyFileOutcomes) {
    using R = std::pair<ExitStatus, std::string>;
    const std::string missing = dir_ + "/none";
    EXPECT_EQ(checked(file_verify_key_file, missing),
              R(ST_BAD_ARGUMENT, "Invalid file: " + missing + "\n"));
    EXPECT_EQ(checked(file_verify_key_file, file("ok", "B0056" + std::string(51, 'x'))),
              R(ST_OK, ""));
    EXPECT_EQ(checked(file_verify_key_file, file("short", "B0048" + std::string(43, 'x'))),
              R(ST_BAD_TR31_FILE, "Invalid TR-31 file size.\n"));
    EXPECT_EQ(checked(file_verify_key_file, file("big", "B4096" + std::string(4091, 'x'))),
              R(ST_BAD_TR31_FILE, "Invalid TR-31 file size.\n"));
    EXPECT_EQ(checked(file_verify_key_file, file("lf", "A0112" + std::string(107, 'x') + "\n")),
              R(ST_BAD_TR31_FILE, "Invalid TR-31 length.\n"));
}

TEST_F(KeyFileCheck, KbpkFileIsJudgedBySizeAlone) {
    using R = std::pair<ExitStatus, std::string>;
    EXPECT_EQ(checked(file_verify_kbpk_file, file("k256", std::string(256, '\0'))), R(ST_OK, ""));
    EXPECT_EQ(checked(file_verify_kbpk_file, file("k255", std::string(255, 'k'))),
              R(ST_BAD_KBPK_FILE, "Invalid KBPK file.\n"));
    EXPECT_EQ(checked(file_verify_kbpk_file, file("k257", std::string(257, 'k'))),
              R(ST_BAD_KBPK_FILE, "Invalid KBPK file.\n"));
    EXPECT_EQ(checked(file_verify_kbpk_file, dir_ + "/none"),
              R(ST_FAILURE, "FATAL: Failed to obtain file information.\n"));
}

TEST_F(KeyFileCheck, SymbolicLinkIsJudgedByItsOwnSize) {
    const std::string target = file("k256", std::string(256, 'k'));
    const std::string link = dir_ + "/link";
    ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0);
    EXPECT_EQ(checked(file_verify_kbpk_file, link).first, ST_BAD_KBPK_FILE);
}

}  // namespace
