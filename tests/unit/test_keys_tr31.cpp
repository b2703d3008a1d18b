// The outer shape of TR-31 key blocks, and the key file checks with their lines.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "keys/tr31.hpp"

namespace {

TEST(Tr31Shape, SizeFirstThenVersionThenLength) {
    const struct {
        const char* head;  // the first five bytes
        std::uint64_t size;
        Tr31Fault fault;
    } rows[] = {
        {"B0056", 56, Tr31Fault::none},
        {"00112", 112, Tr31Fault::none},
        {"A0112", 112, Tr31Fault::none},
        {"C0112", 112, Tr31Fault::none},
        {"B4088", 4088, Tr31Fault::none},
        {"B0055", 55, Tr31Fault::size},
        {"", 0, Tr31Fault::size},
        {"B4089", 4089, Tr31Fault::size},  // D10
        {"D0112", 112, Tr31Fault::version},
        {"b0112", 112, Tr31Fault::version},
        {"10112", 112, Tr31Fault::version},
        {"A0112", 113, Tr31Fault::length},
        {"B0060", 60, Tr31Fault::length},
        {"B0064", 72, Tr31Fault::length},
        {"B 112", 112, Tr31Fault::length_field},
        {"B01x2", 112, Tr31Fault::length_field},
        {"D01x2", 112, Tr31Fault::version},
    };
    for (const auto& r : rows) {
        Tr31Fault f = tr31_size_fault(r.size);
        if (f == Tr31Fault::none) {
            std::array<std::uint8_t, tr31::head_size> head{};
            std::copy_n(r.head, std::min(std::strlen(r.head), head.size()), head.begin());
            f = tr31_head_fault(head, r.size);
        }
        EXPECT_EQ(f, r.fault) << r.head << " " << r.size;
    }
}

template <typename F>
std::pair<ExitStatus, std::string> checked(F check, const std::string& path) {
    ::testing::internal::CaptureStdout();
    ExitStatus st = check(path.c_str());
    std::fflush(stdout);
    return {st, ::testing::internal::GetCapturedStdout()};
}

// On real files; the test process is its own caller.
TEST(KeyFileCheck, Outcomes) {
    char tmpl[] = "/tmp/orvin-tr31-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    const std::string dir = tmpl;
    auto file = [&](const std::string& content) {
        const std::string path = dir + "/f" + std::to_string(content.size()) + content.substr(0, 5);
        std::ofstream(path, std::ios::binary) << content;
        return path;
    };
    using R = std::pair<ExitStatus, std::string>;
    const std::string bad = "Invalid TR-31 ";
    EXPECT_EQ(checked(file_verify_key_file, dir + "/none"),
              R(ST_BAD_ARGUMENT, "Invalid file: " + dir + "/none\n"));
    EXPECT_EQ(checked(file_verify_key_file, file("B0056" + std::string(51, 'x'))), R(ST_OK, ""));
    EXPECT_EQ(checked(file_verify_key_file, file("B4096" + std::string(4091, 'x'))),
              R(ST_BAD_TR31_FILE, bad + "file size.\n"));
    EXPECT_EQ(checked(file_verify_key_file, file("D0112" + std::string(107, 'x'))),
              R(ST_BAD_TR31_FILE, bad + "version ID.\n"));
    EXPECT_EQ(checked(file_verify_key_file, file("B01x2" + std::string(107, 'x'))),
              R(ST_BAD_TR31_FILE, bad + "length field.\n"));
    EXPECT_EQ(checked(file_verify_key_file, file("A0112" + std::string(107, 'x') + "\n")),
              R(ST_BAD_TR31_FILE, bad + "length.\n"));
    EXPECT_EQ(checked(file_verify_kbpk_file, dir + "/none"),
              R(ST_FAILURE, "FATAL: Failed to obtain file information.\n"));
    std::filesystem::remove_all(dir);
}

}  // namespace
