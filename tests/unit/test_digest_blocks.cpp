// Digests of files several blocks long, copied while they are digested: the digest is of exactly
// the bytes copied, in order, and a short read or a refused copy anywhere ends the digest with its
// one message.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "base/io.hpp"
#include "verify/signature.hpp"

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t block = io_bulk_block;

Bytes random_bytes(std::size_t n) {
    std::mt19937 gen(static_cast<std::mt19937::result_type>(n));
    Bytes out(n);
    for (auto& b : out) {
        b = static_cast<std::uint8_t>(gen());
    }
    return out;
}

Digest sha256_of(const Bytes& data) {
    Digest out{};
    unsigned int len = 0;
    EXPECT_EQ(EVP_Digest(data.data(), data.size(), out.data(), &len, EVP_sha256(), nullptr), 1);
    return out;
}

struct TempFile {
    explicit TempFile(const Bytes& data) : file(std::tmpfile(), &std::fclose) {
        EXPECT_TRUE(file);
        EXPECT_EQ(write_full(fd(), data.data(), data.size()), data.size());
        EXPECT_EQ(lseek(fd(), 0, SEEK_SET), 0);
    }
    [[nodiscard]] int fd() const { return fileno(file.get()); }
    std::unique_ptr<FILE, decltype(&std::fclose)> file;
};

struct Outcome {
    Result<Digest> digest;
    std::string printed;
    Bytes copied;
    std::size_t copies_after_refusal = 0;
};

// Digests `size` bytes of a file holding data; the copy refuses the block that holds byte
// refuse_at, whatever the blocks' size.
Outcome digest_of(const Bytes& data, std::uint64_t size, bool with_copy,
                  std::size_t refuse_at = SIZE_MAX) {
    const TempFile file(data);
    Bytes copied;
    bool refused = false;
    std::size_t copies_after_refusal = 0;
    const BlockCopy copy = [&](const std::uint8_t* bytes, std::size_t n) {
        if (refused) {
            ++copies_after_refusal;
        }
        if (refused || copied.size() + n > refuse_at) {
            refused = true;
            return false;
        }
        copied.insert(copied.end(), bytes, bytes + n);
        return true;
    };
    testing::internal::CaptureStdout();
    Result<Digest> digest =
        digest_blocks(file.fd(), size, "read failed", with_copy ? copy : BlockCopy{});
    std::string printed = testing::internal::GetCapturedStdout();
    return {std::move(digest), std::move(printed), std::move(copied), copies_after_refusal};
}

class WholeFile : public testing::TestWithParam<std::size_t> {};

TEST_P(WholeFile, DigestIsOfExactlyTheBytesCopiedInOrder) {
    const Bytes data = random_bytes(GetParam());
    for (const bool with_copy : {false, true}) {
        const Outcome out = digest_of(data, data.size(), with_copy);
        ASSERT_TRUE(out.digest.ok()) << out.printed;
        EXPECT_EQ(out.digest.value(), sha256_of(data));
        EXPECT_EQ(out.printed, "");
        if (with_copy) {
            EXPECT_EQ(out.copied, data);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, WholeFile,
                         testing::Values(0, 1, block, block + 1, 3 * block, 37 * block + 123));

struct Fault {
    const char* name;
    std::size_t file_size;     // bytes the file holds
    std::uint64_t size;        // bytes the digest is told to read
    std::size_t refuse_at;     // the copy of the block holding this byte is refused
    const char* printed;
};

void PrintTo(const Fault& f, std::ostream* os) { *os << f.name; }

class Faults : public testing::TestWithParam<Fault> {};

TEST_P(Faults, StopAtTheFirstFaultWithItsOneMessage) {
    const Fault& f = GetParam();
    const Bytes data = random_bytes(f.file_size);
    const Outcome out = digest_of(data, f.size, true, f.refuse_at);
    EXPECT_EQ(out.digest.status(), ST_FAILURE);
    EXPECT_EQ(out.printed, f.printed);
    // Nothing is copied past the fault, and only bytes of the file, in order.
    EXPECT_EQ(out.copies_after_refusal, 0U);
    ASSERT_LE(out.copied.size(), std::min(f.refuse_at, f.file_size));
    EXPECT_TRUE(std::equal(out.copied.begin(), out.copied.end(), data.begin()));
}

constexpr const char* write_failed = "FATAL: Failed to write a data block.\n";

INSTANTIATE_TEST_SUITE_P(
    Table, Faults,
    testing::Values(
        Fault{"short_in_first_block", 100, block + 1, SIZE_MAX, "read failed\n"},
        Fault{"short_in_a_middle_block", 5 * block + 7, 40 * block, SIZE_MAX, "read failed\n"},
        Fault{"short_at_the_last_byte", 20 * block, 20 * block + 1, SIZE_MAX, "read failed\n"},
        Fault{"refused_first_block", 9 * block, 9 * block, 0, write_failed},
        Fault{"refused_middle_block", 30 * block, 30 * block, 6 * block + 9, write_failed},
        Fault{"refused_last_block", 30 * block + 5, 30 * block + 5, 30 * block + 4, write_failed},
        Fault{"refused_before_short", 8 * block, 40 * block, 4 * block, write_failed},
        Fault{"short_before_refused", 3 * block + 1, 40 * block, 10 * block, "read failed\n"}),
    [](const testing::TestParamInfo<Fault>& info) { return std::string(info.param.name); });

}  // namespace
