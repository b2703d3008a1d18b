// The head of a TR-31 key block: the order of its checks and the edges of each.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "keys/tr31.hpp"

namespace {

// The commands show the smallest block, a foreign version and a length off by a byte; the fuzz
// target holds every size to its bounds and every accepted length field to the size.
TEST(Tr31Shape, VersionThenLength) {
    const struct {
        const char* head;  // the first five bytes
        std::uint64_t size;
        Tr31Fault fault;
    } rows[] = {
        {"00112", 112, Tr31Fault::none},         {"A0112", 112, Tr31Fault::none},
        {"C0112", 112, Tr31Fault::none},         {"B4088", 4088, Tr31Fault::none},
        {"b0112", 112, Tr31Fault::version},      {"10112", 112, Tr31Fault::version},
        {"B0060", 60, Tr31Fault::length},        {"B 112", 112, Tr31Fault::length_field},
        {"B01x2", 112, Tr31Fault::length_field}, {"D01x2", 112, Tr31Fault::version},
    };
    for (const auto& r : rows) {
        std::array<std::uint8_t, tr31::head_size> head{};
        std::copy_n(r.head, head.size(), head.begin());
        EXPECT_EQ(tr31_head_fault(head, r.size), r.fault) << r.head << " " << r.size;
    }
}

}  // namespace
