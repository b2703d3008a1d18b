// The outer shape of TR-31 key blocks, and the key file checks with their lines.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string>

#include "keys/tr31.hpp"

namespace {

// The commands show the smallest block, a foreign version and a length off by a byte; the fuzz
// target holds every accepted length field to the size.
TEST(Tr31Shape, SizeFirstThenVersionThenLength) {
    const struct {
        const char* head;  // the first five bytes
        std::uint64_t size;
        Tr31Fault fault;
    } rows[] = {
        {"00112", 112, Tr31Fault::none},
        {"A0112", 112, Tr31Fault::none},
        {"C0112", 112, Tr31Fault::none},
        {"B4088", 4088, Tr31Fault::none},
        {"B0055", 55, Tr31Fault::size},
        {"", 0, Tr31Fault::size},
        {"B4089", 4089, Tr31Fault::size},  // D10
        {"b0112", 112, Tr31Fault::version},
        {"10112", 112, Tr31Fault::version},
        {"B0060", 60, Tr31Fault::length},
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

// The outcomes no key or KBPK command shows (the others are checked end to end). On real files;
// the test process is its own caller.
TEST(KeyFileCheck, LengthFieldAndMissingKbpkFile) {
    char path[] = "/tmp/orvin-tr31-XXXXXX";
    const int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    const std::string block = "B01x2" + std::string(107, 'x');
    ASSERT_EQ(write(fd, block.data(), block.size()), static_cast<ssize_t>(block.size()));
    close(fd);
    EXPECT_EQ(checked(file_verify_key_file, path),
              std::make_pair(ST_BAD_TR31_FILE, std::string("Invalid TR-31 length field.\n")));
    unlink(path);
    EXPECT_EQ(checked(file_verify_kbpk_file, path),
              std::make_pair(ST_FAILURE, std::string("FATAL: Failed to obtain file information.\n")));
}

}  // namespace
