// The bounds of the terminal's certificate records and the texts made from them, at the edges the
// commands do not reach.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "x509/terminal_record.hpp"

namespace {

const std::string prefix(x509_subject_prefix);

TEST(X509RecordParse, RefusesLengthsThatLeadPastTheBuffer) {
    std::array<std::uint8_t, 4096> buf{};
    const struct {
        std::size_t key_length;
        std::size_t cn_length;  // written where the common name length goes, if inside
        bool ok;
    } rows[] = {
        {4090, 0, true},                      // N and K are the last two bytes, both 0
        {4091, 0, false},                     // K would be past the end
        {4092, 0, false},                     // N would be past the end
        {65535, 0, false}, {4000, 90, true},  // the name ends where K is the last byte
        {4000, 91, false},                    // the name runs one byte too far
    };
    for (const auto& r : rows) {
        buf.fill(0);
        buf[0] = static_cast<std::uint8_t>(r.key_length);
        buf[1] = static_cast<std::uint8_t>(r.key_length >> 8);
        if (4 + r.key_length < buf.size()) {
            buf[4 + r.key_length] = static_cast<std::uint8_t>(r.cn_length);
        }
        EXPECT_EQ(x509_record_parse(buf, RecordLayout::request).has_value(), r.ok) << r.key_length;
    }
}

TEST(X509KeyUsageText, PrefixesAgreementOnlyForATextThatBeginsWithAnOnlyUsage_D12) {
    const std::string agreement = "keyAgreement,";
    const struct {
        std::string record;
        std::optional<std::string> text;
    } rows[] = {
        {"encipherOnly", "keyAgreement,encipherOnly"},
        {"decipherOnly,keyCertSign", "keyAgreement,decipherOnly,keyCertSign"},
        {"keyCertSign,decipherOnly", "keyCertSign,decipherOnly"},
        {"decipher", "decipher"},
        {"DecipherOnly", "DecipherOnly"},
        {std::string(255, 'x'), std::string(255, 'x')},
        {"decipherOnly" + std::string(230, 'x'),
         agreement + "decipherOnly" + std::string(230, 'x')},
        {"decipherOnly" + std::string(231, 'x'), std::nullopt},  // 256 with the prefix
        {"encipherOnly" + std::string(243, 'x'), std::nullopt},
        {std::string("ab\0cd", 5), "ab"},
    };
    for (const auto& r : rows) {
        EXPECT_EQ(x509_key_usage_text(r.record), r.text) << r.record;
    }
}

TEST(X509SubjectParse, TakesTheEntriesInOrderAsEachTestLeavesThePiece) {
    using E = std::vector<SubjectEntry>;
    const E fixed = {{"C", "GB"},
                     {"ST", "Hallowmereshire"},
                     {"L", "Thornwickley"},
                     {"O", "Orvin Systems Ltd"},
                     {"OU", "Terminal"}};
    auto with = [&](E more) {
        E all = fixed;
        all.insert(all.end(), more.begin(), more.end());
        return all;
    };
    const struct {
        std::string text;
        E entries;
    } rows[] = {
        {prefix + "x//y/junk=1", with({{"CN", "x"}})},
        // Each test looks at what the earlier ones left: a chain of keys yields an entry per key.
        {"/C=ST=L=v", {{"C", "ST=L=v"}, {"ST", "L=v"}, {"L", "v"}}},
        {"/CN=emailAddress=m", {{"CN", "emailAddress=m"}, {"emailAddress", "m"}}},
        {"/OU=C=x", {{"OU", "C=x"}}},  // C was tried before OU
        {"", {}},
    };
    for (const auto& r : rows) {
        EXPECT_EQ(x509_subject_parse(r.text), r.entries) << r.text;
    }
}

}  // namespace
