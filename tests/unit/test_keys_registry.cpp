// The key hash registry: scanning its records, and checking and appending on real files.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "keys/registry.hpp"

namespace {

using Bytes = std::vector<std::uint8_t>;

sapi::KeyDigest digest(std::uint8_t fill) {
    sapi::KeyDigest d{};
    d.fill(fill);
    return d;
}

Bytes bytes(std::initializer_list<sapi::KeyDigest> digests, std::size_t tail = 0) {
    Bytes b;
    for (const auto& d : digests) {
        b.insert(b.end(), d.begin(), d.end());
    }
    b.insert(b.end(), tail, 0xEE);
    return b;
}

const sapi::KeyDigest K = digest(0x11);
const sapi::KeyDigest S = digest(0x22);
const sapi::KeyDigest other = digest(0x33);

struct ScanCase {
    const char* name;
    RegistryKind kind;
    Bytes contents;
    std::size_t size;  // as lstat gave it
    RegistryOutcome outcome;
};

void PrintTo(const ScanCase& c, std::ostream* os) {
    *os << c.name;
}

class RegistryScan : public ::testing::TestWithParam<ScanCase> {};

TEST_P(RegistryScan, Outcome) {
    const ScanCase& c = GetParam();
    EXPECT_EQ(registry_scan(c.contents, c.size, c.kind, K, S), c.outcome);
}

ScanCase whole(const char* name, RegistryKind kind, Bytes contents, RegistryOutcome outcome) {
    const std::size_t size = contents.size();
    return ScanCase{name, kind, std::move(contents), size, outcome};
}

constexpr RegistryKind paired = RegistryKind::paired;
constexpr RegistryKind single = RegistryKind::single;

INSTANTIATE_TEST_SUITE_P(
    Cases, RegistryScan,
    ::testing::Values(
        whole("paired_empty", paired, {}, RegistryOutcome::append),
        whole("paired_other_key", paired, bytes({other, S}), RegistryOutcome::append),
        whole("paired_same_pair_is_reinstall", paired, bytes({other, other, K, S}),
              RegistryOutcome::reinstall),
        whole("paired_other_second_digest_is_duplicate", paired, bytes({K, other}),
              RegistryOutcome::duplicate),
        // A key digest equal to a stored second digest is no match: records are compared whole.
        whole("paired_match_only_in_second_half", paired, bytes({other, K}),
              RegistryOutcome::append),
        whole("paired_trailing_6_ignored", paired, bytes({other, S}, 6), RegistryOutcome::append),
        whole("paired_trailing_36_bad_length", paired, bytes({other, S}, 36),
              RegistryOutcome::bad_length),
        whole("paired_trailing_32_bad_length", paired, bytes({other, S}, 32),
              RegistryOutcome::bad_length),
        whole("paired_match_before_bad_tail_wins", paired, bytes({K, S}, 36),
              RegistryOutcome::reinstall),
        whole("single_empty", single, {}, RegistryOutcome::append),
        whole("single_registered_is_duplicate", single, bytes({other, K}),
              RegistryOutcome::duplicate),
        whole("single_trailing_8_ignored", single, bytes({other}, 8), RegistryOutcome::append),
        whole("single_31_bytes_nothing_to_compare", single, Bytes(31, 0x11),
              RegistryOutcome::append),
        ScanCase{"file_shorter_than_its_size", paired, bytes({other}), 64,
                 RegistryOutcome::read_failed},
        ScanCase{"single_file_shorter_than_its_size", single, bytes({other}), 64,
                 RegistryOutcome::read_failed}),
    [](const ::testing::TestParamInfo<ScanCase>& info) { return std::string(info.param.name); });

TEST(RegistryRecord, PairedHoldsBothDigestsSingleOnlyTheKey) {
    EXPECT_EQ(registry_record(paired, K, S), bytes({K, S}));
    EXPECT_EQ(registry_record(single, K, S), bytes({K}));
}

// registry_check on files in a private directory, with the same choice and append rules.
class RegistryFile : public ::testing::Test {
  protected:
    void SetUp() override {
        char tmpl[] = "/tmp/orvin-registry-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
        paired_ = dir_ + "/.sha256";
        single_ = dir_ + "/.sha256-hashes";
    }
    void TearDown() override { std::filesystem::remove_all(dir_); }

    std::pair<ExitStatus, std::string> check(const sapi::KeyDigest& k, const sapi::KeyDigest& s) {
        ::testing::internal::CaptureStdout();
        ExitStatus st = registry_check({paired_.c_str(), single_.c_str()}, k, s);
        std::fflush(stdout);
        return {st, ::testing::internal::GetCapturedStdout()};
    }
    static Bytes read(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(in), {});
    }
    static void write(const std::string& path, const Bytes& b) {
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(b.data()), static_cast<std::streamsize>(b.size()));
    }

    using R = std::pair<ExitStatus, std::string>;
    std::string dir_, paired_, single_;
};

TEST_F(RegistryFile, FirstKeyCreatesThePairedRegistry) {
    EXPECT_EQ(check(K, S), R(ST_OK, ""));
    EXPECT_EQ(read(paired_), bytes({K, S}));
    EXPECT_FALSE(std::filesystem::exists(single_));
}

TEST_F(RegistryFile, SameKeyAgainIsAReinstallationAndAddsNothing) {
    ASSERT_EQ(check(K, S).first, ST_OK);
    EXPECT_EQ(check(K, S), R(ST_OK, "WARNING: Cryptographic key is being re-installed.\n"));
    EXPECT_EQ(read(paired_).size(), 64U);
}

TEST_F(RegistryFile, SameKeyDigestWithAnotherSecondIsRefused) {
    ASSERT_EQ(check(K, S).first, ST_OK);
    EXPECT_EQ(check(K, other),
              R(ST_DUPLICATE_KEY, "FATAL: Duplicate cryptographic key value detected.\n"));
    EXPECT_EQ(read(paired_).size(), 64U);
}

TEST_F(RegistryFile, SingleRegistryInForceWhenPresent) {
    write(paired_, bytes({K, S}));
    write(single_, {});
    EXPECT_EQ(check(K, S), R(ST_OK, ""));
    EXPECT_EQ(read(single_), bytes({K}));
    EXPECT_EQ(check(K, S),
              R(ST_DUPLICATE_KEY, "FATAL: Duplicate cryptographic key value detected.\n"));
    EXPECT_EQ(read(paired_), bytes({K, S})) << "the other registry is never touched";
}

TEST_F(RegistryFile, NewRecordGoesAfterAnIgnoredTail) {
    write(paired_, bytes({other, S}, 6));
    EXPECT_EQ(check(K, S), R(ST_OK, ""));
    Bytes expected = bytes({other, S}, 6);
    const Bytes added = bytes({K, S});
    expected.insert(expected.end(), added.begin(), added.end());
    EXPECT_EQ(read(paired_), expected);
}

TEST_F(RegistryFile, PartRecordTheScanReachesIsALengthFailure) {
    write(paired_, bytes({other, S}, 36));
    EXPECT_EQ(check(K, S), R(ST_FAILURE, "Invalid cryptographic key hash file length.\n"));
    EXPECT_EQ(read(paired_).size(), 100U);
}

TEST_F(RegistryFile, LinkInPlaceOfTheRegistryIsNotFollowed) {
    const std::string target = dir_ + "/elsewhere";
    write(target, {});
    std::filesystem::create_symlink(target, paired_);
    EXPECT_EQ(check(K, S),
              R(ST_FAILURE, "FATAL: Failed to open the cryptographic key hash file.\n"));
    EXPECT_TRUE(read(target).empty());
}

}  // namespace
