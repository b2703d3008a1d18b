// Request size limits, reply rules and proc record reads at their edges; the requests themselves
// are checked byte for byte through the simulated device.
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <numeric>
#include <string>
#include <vector>

#include "keys/sapi.hpp"
#include "keys/sapi_wire.hpp"

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes counting(std::size_t n, std::uint8_t first = 0) {
    Bytes b(n);
    std::iota(b.begin(), b.end(), first);
    return b;
}

TEST(SapiEncode, BuildersRefuseWhatDoesNotFitItsField) {
    EXPECT_TRUE(sapi_key_install(1, Bytes(4088)).has_value());
    EXPECT_FALSE(sapi_key_install(1, Bytes(4089)).has_value());
    EXPECT_TRUE(sapi_key_issuer_init(std::string(255, 'a'), Bytes(8)).has_value());
    EXPECT_FALSE(sapi_key_issuer_init(std::string(256, 'a'), Bytes(8)).has_value());
}

TEST(SapiReplies, KeyRepliesNeedTheirDigestsAndAtLeastOneByte) {
    const struct {
        SapiReplyRule rule;
        ssize_t count;
        bool accepted;
    } rows[] = {
        {sapi_reply_key(key_reply_min), 64, true},
        {sapi_reply_key(key_reply_min), 63, false},
        {sapi_reply_key(key_reply_min), 4096, true},
        {sapi_reply_key(terminal_key_reply_min), 32, true},
        {sapi_reply_key(terminal_key_reply_min), 31, false},
        {sapi_reply_key(0), 0, false},
        {sapi_reply_key(0), 1, true},
        {sapi_reply_kbpk, -1, false},
    };
    for (const auto& r : rows) {
        EXPECT_EQ(sapi_reply_accepted(r.count, r.rule), r.accepted) << r.count;
    }
    const Bytes reply = counting(70);
    const std::optional<KeyReply> key = sapi_parse_key_reply(reply);
    ASSERT_TRUE(key);
    EXPECT_EQ(key->second_digest[31], 63);
    EXPECT_EQ(key->protected_key, Bytes(reply.begin() + 64, reply.end()));
    EXPECT_TRUE(sapi_parse_key_reply(counting(64))->protected_key.empty());
    EXPECT_FALSE(sapi_parse_key_reply(counting(63)));
    EXPECT_EQ(sapi_parse_terminal_key_reply(reply), Bytes(reply.begin() + 32, reply.end()));
    EXPECT_FALSE(sapi_parse_terminal_key_reply(counting(31)));
}

TEST(SapiReplies, Only252OnAWorkingKeyMeansPciPin) {
    const struct {
        int err;
        SapiWriteRefusal refusal;
        int status;
    } rows[] = {{252, SapiWriteRefusal::pci_pin, 14},
                {251, SapiWriteRefusal::pci_pin, 9},
                {252, SapiWriteRefusal::ordinary, 9}};
    for (const auto& r : rows) {
        const SapiWriteFailure f = sapi_write_failure(sapi::Command::key_install, r.err, r.refusal);
        EXPECT_TRUE(f.with_code);
        EXPECT_EQ(f.status, r.status) << r.err;
    }
}

// A packet socket pair stands in for "/proc/sapi": each packet is what one read returns.
ExitStatus proc_read(const std::vector<std::string>& packets, ProcRecord& rec, ProcReads reads) {
    int fds[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, fds), 0);
    for (const std::string& p : packets) {
        EXPECT_EQ(write(fds[1], p.data(), p.size()), static_cast<ssize_t>(p.size()));
    }
    close(fds[1]);
    const ExitStatus st = sapi_proc_read_fd(fds[0], rec, reads);
    close(fds[0]);
    return st;
}

TEST(SapiProcRead, TwoReadsAreJoinedOneTakesTheFirstRecordNoneFails) {
    ProcRecord rec;
    rec.bytes.fill(0xFF);
    ASSERT_EQ(proc_read({"abc", "de"}, rec, ProcReads::two), ST_OK);
    EXPECT_EQ(std::string(rec.bytes.begin(), rec.bytes.begin() + rec.length), "abcde");
    EXPECT_EQ(rec.bytes[5], 0);
    EXPECT_EQ(rec.bytes.back(), 0);
    ASSERT_EQ(proc_read({"abc", "de"}, rec, ProcReads::one), ST_OK);
    EXPECT_EQ(rec.length, 3U);
    EXPECT_EQ(proc_read({}, rec, ProcReads::two), ST_FAILURE);
}

}  // namespace
