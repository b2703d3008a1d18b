// Request size limits and reply rules at their edges; the requests, the refusals and the proc
// record reads are checked byte for byte through the simulated device.
#include <gtest/gtest.h>

#include <cstdint>
#include <numeric>
#include <string>
#include <vector>

#include "device/sapi.hpp"
#include "device/sapi_wire.hpp"

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

}  // namespace
