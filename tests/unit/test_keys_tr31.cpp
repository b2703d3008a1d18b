// The outer shape of TR-31 key blocks: the order of the checks and the edges of each.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>

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
        {"00112", 112, Tr31Fault::none},         {"A0112", 112, Tr31Fault::none},
        {"C0112", 112, Tr31Fault::none},         {"B4088", 4088, Tr31Fault::none},
        {"B0055", 55, Tr31Fault::size},          {"", 0, Tr31Fault::size},
        {"B4089", 4089, Tr31Fault::size},  // D10
        {"b0112", 112, Tr31Fault::version},      {"10112", 112, Tr31Fault::version},
        {"B0060", 60, Tr31Fault::length},        {"B 112", 112, Tr31Fault::length_field},
        {"B01x2", 112, Tr31Fault::length_field}, {"D01x2", 112, Tr31Fault::version},
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

}  // namespace
