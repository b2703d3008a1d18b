// Requests to the Security API device, the rules its replies must meet, and the proc record reads.
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
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

Bytes concat(Bytes head, const Bytes& tail) {
    head.insert(head.end(), tail.begin(), tail.end());
    return head;
}

const Bytes kbpk_file = counting(sapi::kbpk_file_size, 0x40);
const Bytes protected_kbpk = counting(sapi::protected_kbpk_size, 0xA0);

struct EncodeCase {
    const char* name;
    SapiRequest request;
    Bytes expected;
};

void PrintTo(const EncodeCase& c, std::ostream* os) {
    *os << c.name;
}

class SapiEncode : public ::testing::TestWithParam<EncodeCase> {};

TEST_P(SapiEncode, HeaderThenPayloadByteForByte) {
    const EncodeCase& c = GetParam();
    EXPECT_EQ(sapi_encode(c.request), c.expected);
}

std::span<const std::uint8_t, 256> file_span() {
    return std::span<const std::uint8_t, 256>(kbpk_file.data(), 256);
}
std::span<const std::uint8_t, 32> protected_span() {
    return std::span<const std::uint8_t, 32>(protected_kbpk.data(), 32);
}

INSTANTIATE_TEST_SUITE_P(
    Requests, SapiEncode,
    ::testing::Values(
        EncodeCase{"remove_acquirer_7",
                   sapi_kbpk_remove(7),
                   {0xB3, 0xD1, 0x07, 0x00, 0x00, 0x00, 0x00, 0x00}},
        EncodeCase{"install_file_acquirer_12_pci_pin_off_rki_ca_1",
                   sapi_kbpk_install_file(12, 0, 1, file_span()),
                   concat({0xB4, 0xD1, 0x0C, 0x00, 0x02, 0x01, 0x00, 0x00, 0x00, 0x00}, kbpk_file)},
        EncodeCase{"install_file_acquirer_12_pci_pin_on_rki_ca_0",
                   sapi_kbpk_install_file(12, sapi::flag_pci_pin, 0, file_span()),
                   concat({0xB4, 0xD1, 0x0C, 0x00, 0x02, 0x01, 0x00, 0x00, 0x00, 0xC0}, kbpk_file)},
        EncodeCase{"install_file_pci_pin_on_rki_ca_1_has_no_bit_14",
                   sapi_kbpk_install_file(255, sapi::flag_pci_pin, 1, file_span()),
                   concat({0xB4, 0xD1, 0xFF, 0x00, 0x02, 0x01, 0x00, 0x00, 0x00, 0x80}, kbpk_file)},
        EncodeCase{"update_pci_pin_uses_its_own_code",
                   sapi_kbpk_update_pci_pin(3, 0, 0, file_span()),
                   concat({0xC2, 0xD1, 0x03, 0x00, 0x02, 0x01, 0x00, 0x00, 0x00, 0x40}, kbpk_file)},
        // At start-up the 16 stored bits go out as read, bit 14 added afresh.
        EncodeCase{
            "install_protected_sends_stored_bits",
            sapi_kbpk_install_protected(0, 0x8001, 0, protected_span()),
            concat({0xB4, 0xD1, 0x00, 0x00, 0x22, 0x00, 0x00, 0x00, 0x01, 0xC0}, protected_kbpk)},
        EncodeCase{"key_install_is_the_block_unchanged",
                   *sapi_key_install(9, Bytes{'B', '0', '0', '5', '6'}),
                   {0xB7, 0xD1, 0x09, 0x00, 0x05, 0x00, 0x00, 0x00, 'B', '0', '0', '5', '6'}},
        EncodeCase{"issuer_init_length_subject_key",
                   *sapi_key_issuer_init("/CN=t", Bytes{0xEE, 0xFF}),
                   {0xBE, 0xD1, 0x00, 0x00, 0x08, 0x00, 0x00, 0x00, 5, '/', 'C', 'N', '=', 't',
                    0xEE, 0xFF}},
        EncodeCase{"rate_limit_init_whole_state",
                   *sapi_rate_limit_init(Bytes{1, 2, 3}),
                   {0xBF, 0xD1, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00, 1, 2, 3}}),
    [](const ::testing::TestParamInfo<EncodeCase>& info) { return std::string(info.param.name); });

TEST(SapiEncode, FixedSizesOfTheKbpkRequests) {
    EXPECT_EQ(sapi_encode(sapi_kbpk_install_file(1, 0, 1, file_span())).size(), 266U);
    EXPECT_EQ(sapi_encode(sapi_kbpk_install_protected(1, 0, 1, protected_span())).size(), 42U);
}

TEST(SapiEncode, LengthFieldIsLittleEndianAcrossBytes) {
    Bytes block(0x0FF8, 'x');  // 4088
    const Bytes wire = sapi_encode(*sapi_key_install(1, block));
    ASSERT_EQ(wire.size(), 4096U);
    EXPECT_EQ(Bytes(wire.begin() + 4, wire.begin() + 8), (Bytes{0xF8, 0x0F, 0x00, 0x00}));
}

TEST(SapiBuilders, RefuseWhatDoesNotFitItsField) {
    EXPECT_TRUE(sapi_key_install(1, Bytes(4088)).has_value());
    EXPECT_FALSE(sapi_key_install(1, Bytes(4089)).has_value());
    EXPECT_TRUE(sapi_key_issuer_init(std::string(255, 'a'), Bytes(8)).has_value());
    EXPECT_FALSE(sapi_key_issuer_init(std::string(256, 'a'), Bytes(8)).has_value());
}

struct ReplyCase {
    const char* name;
    SapiReplyRule rule;
    ssize_t count;
    bool accepted;
};

void PrintTo(const ReplyCase& c, std::ostream* os) {
    *os << c.name;
}

class SapiReplyRules : public ::testing::TestWithParam<ReplyCase> {};

TEST_P(SapiReplyRules, CountAcceptedOrNot) {
    const ReplyCase& c = GetParam();
    EXPECT_EQ(sapi_reply_accepted(c.count, c.rule), c.accepted);
}

INSTANTIATE_TEST_SUITE_P(
    Rules, SapiReplyRules,
    ::testing::Values(
        ReplyCase{"kbpk_96", sapi_reply_kbpk, 96, true},
        ReplyCase{"kbpk_95", sapi_reply_kbpk, 95, false},
        ReplyCase{"kbpk_0", sapi_reply_kbpk, 0, false},
        ReplyCase{"kbpk_failed_read", sapi_reply_kbpk, -1, false},
        ReplyCase{"key_file_64", sapi_reply_key(key_reply_min), 64, true},
        ReplyCase{"key_file_63_too_short_for_its_digests", sapi_reply_key(key_reply_min), 63,
                  false},
        ReplyCase{"key_file_4096", sapi_reply_key(key_reply_min), 4096, true},
        ReplyCase{"key_file_0", sapi_reply_key(key_reply_min), 0, false},
        ReplyCase{"terminal_key_32", sapi_reply_key(terminal_key_reply_min), 32, true},
        ReplyCase{"terminal_key_31", sapi_reply_key(terminal_key_reply_min), 31, false},
        ReplyCase{"key_with_no_need_still_needs_1", sapi_reply_key(0), 0, false},
        ReplyCase{"key_with_no_need_1", sapi_reply_key(0), 1, true}),
    [](const ::testing::TestParamInfo<ReplyCase>& info) { return std::string(info.param.name); });

struct WriteFailureCase {
    const char* name;
    sapi::Command command;
    int err;
    SapiWriteRefusal refusal;
    bool with_code;
    int status;
};

void PrintTo(const WriteFailureCase& c, std::ostream* os) {
    *os << c.name;
}

class SapiWriteFailures : public ::testing::TestWithParam<WriteFailureCase> {};

TEST_P(SapiWriteFailures, MessageKindAndStatus) {
    const WriteFailureCase& c = GetParam();
    const SapiWriteFailure f = sapi_write_failure(c.command, c.err, c.refusal);
    EXPECT_EQ(f.with_code, c.with_code);
    EXPECT_EQ(f.status, c.status);
}

INSTANTIATE_TEST_SUITE_P(
    Failures, SapiWriteFailures,
    ::testing::Values(WriteFailureCase{"remove_has_no_code", sapi::Command::kbpk_remove, 5,
                                       SapiWriteRefusal::ordinary, false, 9},
                      WriteFailureCase{"install_has_code", sapi::Command::kbpk_install, 5,
                                       SapiWriteRefusal::ordinary, true, 9},
                      WriteFailureCase{"working_key_252_is_pci_pin", sapi::Command::key_install,
                                       252, SapiWriteRefusal::pci_pin, true, 14},
                      WriteFailureCase{"working_key_other_code", sapi::Command::key_install, 251,
                                       SapiWriteRefusal::pci_pin, true, 9},
                      WriteFailureCase{"terminal_key_252_is_plain_failure",
                                       sapi::Command::key_install, 252, SapiWriteRefusal::ordinary,
                                       true, 9}),
    [](const ::testing::TestParamInfo<WriteFailureCase>& info) {
        return std::string(info.param.name);
    });

TEST(SapiReplies, KbpkReplySplitsIntoDigestsAndProtectedKbpk) {
    const Bytes reply = counting(96);
    const std::optional<KbpkReply> r = sapi_parse_kbpk_reply(reply);
    ASSERT_TRUE(r);
    EXPECT_EQ(r->key_digest[0], 0);
    EXPECT_EQ(r->second_digest[0], 32);
    EXPECT_EQ(r->protected_kbpk[0], 64);
    EXPECT_EQ(r->protected_kbpk[31], 95);
    EXPECT_FALSE(sapi_parse_kbpk_reply(counting(95)));
    EXPECT_FALSE(sapi_parse_kbpk_reply(counting(97)));
}

TEST(SapiReplies, KeyReplyAndTerminalKeyReplyCutAtTheirOffsets) {
    const Bytes reply = counting(70);
    const std::optional<KeyReply> key = sapi_parse_key_reply(reply);
    ASSERT_TRUE(key);
    EXPECT_EQ(key->second_digest[31], 63);
    EXPECT_EQ(key->protected_key, Bytes(reply.begin() + 64, reply.end()));
    EXPECT_TRUE(sapi_parse_key_reply(counting(64))->protected_key.empty());
    EXPECT_FALSE(sapi_parse_key_reply(counting(63)));

    const auto terminal = sapi_parse_terminal_key_reply(reply);
    ASSERT_TRUE(terminal);
    EXPECT_EQ(*terminal, Bytes(reply.begin() + 32, reply.end()));
    EXPECT_FALSE(sapi_parse_terminal_key_reply(counting(31)));
}

// A packet socket pair stands in for the device: what the peer sent before the exchange is the
// reply, with its boundaries kept, and what the exchange wrote can be read back whole.
class SapiTransfer : public ::testing::Test {
  protected:
    void SetUp() override {
        std::signal(SIGPIPE, SIG_IGN);
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, fds_), 0);
    }
    void TearDown() override {
        close(fds_[0]);
        if (fds_[1] >= 0) {
            close(fds_[1]);
        }
    }
    void device_replies(const Bytes& reply) {
        ASSERT_EQ(write(fds_[1], reply.data(), reply.size()), static_cast<ssize_t>(reply.size()));
    }
    Bytes device_received() {
        Bytes buf(8192);
        ssize_t n = recv(fds_[1], buf.data(), buf.size(), MSG_DONTWAIT);
        buf.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
        return buf;
    }
    SapiResult run(const SapiRequest& r, SapiReplyRule rule, std::string& out,
                   SapiWriteRefusal refusal = SapiWriteRefusal::ordinary) {
        ::testing::internal::CaptureStdout();
        SapiResult result = sapi_transfer(fds_[0], r, rule, refusal);
        std::fflush(stdout);
        out = ::testing::internal::GetCapturedStdout();
        return result;
    }
    int fds_[2] = {-1, -1};
};

TEST_F(SapiTransfer, RemoveWritesEightBytesAndReadsNothing) {
    device_replies({1, 2, 3});
    std::string out;
    SapiResult r = run(sapi_kbpk_remove(7), sapi_reply_none, out);
    EXPECT_EQ(r.status, ST_OK);
    EXPECT_TRUE(r.reply.empty());
    EXPECT_EQ(out, "");
    EXPECT_EQ(device_received(), (Bytes{0xB3, 0xD1, 0x07, 0, 0, 0, 0, 0}));
    Bytes left(8);
    EXPECT_EQ(read(fds_[0], left.data(), left.size()), 3) << "the reply must stay unread";
}

TEST_F(SapiTransfer, KbpkInstallTakesExactly96Bytes) {
    device_replies(counting(96));
    std::string out;
    SapiResult r = run(sapi_kbpk_install_file(12, 0, 1, file_span()), sapi_reply_kbpk, out);
    EXPECT_EQ(r.status, ST_OK);
    EXPECT_EQ(r.reply, counting(96));
    EXPECT_EQ(device_received().size(), 266U);
}

TEST_F(SapiTransfer, ShortKbpkReplyIsAReadFailure) {
    device_replies(counting(95));
    std::string out;
    SapiResult r = run(sapi_kbpk_install_file(12, 0, 1, file_span()), sapi_reply_kbpk, out);
    EXPECT_EQ(r.status, ST_FAILURE);
    EXPECT_EQ(out, "FATAL: Read from the Security API device failed with code 0x00.\n");
}

TEST_F(SapiTransfer, KeyReplyOfAnyLengthUpTo4096) {
    device_replies(counting(200));
    std::string out;
    SapiResult r = run(*sapi_key_install(3, Bytes(56, 'B')), sapi_reply_key(key_reply_min), out,
                       SapiWriteRefusal::pci_pin);
    EXPECT_EQ(r.status, ST_OK);
    EXPECT_EQ(r.reply.size(), 200U);
}

TEST_F(SapiTransfer, FailedWriteReportsErrnoInHex) {
    close(fds_[1]);
    fds_[1] = -1;
    std::string out;
    SapiResult r = run(sapi_kbpk_install_file(12, 0, 1, file_span()), sapi_reply_kbpk, out);
    EXPECT_EQ(r.status, ST_FAILURE);
    EXPECT_EQ(out, "FATAL: Write to the Security API device failed with code 0x20.\n");  // EPIPE
}

TEST_F(SapiTransfer, FailedRemoveWriteHasItsOwnMessage) {
    close(fds_[1]);
    fds_[1] = -1;
    std::string out;
    SapiResult r = run(sapi_kbpk_remove(7), sapi_reply_none, out);
    EXPECT_EQ(r.status, ST_FAILURE);
    EXPECT_EQ(out, "FATAL: Failed to write to the Security API device.\n");
}

TEST_F(SapiTransfer, ProcReadJoinsTwoReadsAndZeroesTheRest) {
    device_replies({'a', 'b', 'c'});
    device_replies({'d', 'e'});
    ProcRecord rec;
    rec.bytes.fill(0xFF);
    ASSERT_EQ(sapi_proc_read_fd(fds_[0], rec, ProcReads::two), ST_OK);
    EXPECT_EQ(rec.length, 5U);
    EXPECT_EQ(std::string(rec.bytes.begin(), rec.bytes.begin() + 5), "abcde");
    EXPECT_EQ(rec.bytes[5], 0);
    EXPECT_EQ(rec.bytes.back(), 0);
}

TEST_F(SapiTransfer, ProcReadOnceTakesTheFirstRecordOnly) {
    device_replies({'a', 'b', 'c'});
    device_replies({'d', 'e'});
    ProcRecord rec;
    ASSERT_EQ(sapi_proc_read_fd(fds_[0], rec, ProcReads::one), ST_OK);
    EXPECT_EQ(rec.length, 3U);
}

TEST_F(SapiTransfer, EmptyProcRecordFails) {
    close(fds_[1]);
    fds_[1] = -1;
    ProcRecord rec;
    EXPECT_EQ(sapi_proc_read_fd(fds_[0], rec, ProcReads::two), ST_FAILURE);
}

}  // namespace
