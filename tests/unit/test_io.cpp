// Whole reads of small files: exactly the bytes a size names, or nothing (D26).
#include <gtest/gtest.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/io.hpp"

namespace {

// The read end of a pipe that holds data and then ends.
int reader_of(const std::string& data) {
    int ends[2];
    if (pipe(ends) != 0) {
        return -1;
    }
    const bool written = write_full(ends[1], data.data(), data.size()) == data.size();
    close(ends[1]);
    if (!written) {
        close(ends[0]);
        return -1;
    }
    return ends[0];
}

std::optional<std::string> whole(const std::string& data, off_t size) {
    const int fd = reader_of(data);
    if (fd < 0) {
        ADD_FAILURE() << "no pipe";
        return std::nullopt;
    }
    const std::optional<std::vector<std::uint8_t>> bytes = read_whole(fd, size);
    close(fd);
    if (!bytes) {
        return std::nullopt;
    }
    return std::string(bytes->begin(), bytes->end());
}

TEST(ReadWhole, GivesExactlyTheSizeOrNothing) {
    const struct {
        std::string data;
        off_t size;
        std::optional<std::string> read;
    } rows[] = {
        {"abcdef", 6, "abcdef"},
        {"abcdef", 3, "abc"},  // what grew after the size was taken is not read
        {"", 0, ""},
        {"abc", 4, std::nullopt},  // shrunk after the size was taken
        {"abc", -1, std::nullopt},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(whole(row.data, row.size), row.read) << row.data << " " << row.size;
    }
}

// Cut to 32 bits, 4 GiB + 3 is 3 and 4 GiB is 0: a 32-bit build would take a prefix of the file
// for all of it. Above 2 GiB no buffer can be made there either.
TEST(ReadWhole, RefusesASizeBeyondWhatMemoryCanAddress) {
    if (sizeof(std::size_t) >= sizeof(off_t)) {
        GTEST_SKIP() << "every file size fits in a buffer's size on this build";
    }
    for (const off_t size : {(off_t{1} << 32) + 3, off_t{1} << 32, off_t{3} << 30}) {
        EXPECT_EQ(whole("abcdef", size), std::nullopt) << size;
    }
}

}  // namespace
