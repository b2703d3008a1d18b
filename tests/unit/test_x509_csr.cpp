// The terminal key from its block, and the request signed for it with the dummy key of its class
// (its content is checked end to end by the system tests).
#include <gtest/gtest.h>

#include <openssl/pem.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

#include "x509/rsa_keys.hpp"
#include "x509/terminal_record.hpp"
#include "x509/x509_build.hpp"

namespace {

using Bytes = std::vector<std::uint8_t>;

// A public key block for a modulus of the given number of bits (top bit set, odd) and e = 65537.
Bytes key_block(int bits) {
    const std::size_t len = static_cast<std::size_t>((bits + 7) / 8);
    Bytes block(2 + len + 5, 0x5A);
    block[0] = static_cast<std::uint8_t>(len >> 8);
    block[1] = static_cast<std::uint8_t>(len);
    block[2] = static_cast<std::uint8_t>(1u << ((bits - 1) % 8));
    block[1 + len] |= 1;
    const std::uint8_t exponent[] = {0x00, 0x03, 0x01, 0x00, 0x01};
    std::copy(std::begin(exponent), std::end(exponent),
              block.begin() + 2 + static_cast<std::ptrdiff_t>(len));
    return block;
}

RsaNumbers terminal_key(int bits) {
    RsaNumbers key;
    EXPECT_EQ(extract_rsa_key(key_block(bits), key), ST_OK);
    return key;
}

X509ReqPtr csr(int bits, const std::string& cn, const std::string& usage) {
    std::array<std::uint8_t, 4096> out{};
    const std::size_t n =
        x509_csr(out, terminal_key(bits), x509_subject_text("", cn, csr_max_cn), usage);
    EXPECT_GT(n, 0u);
    const std::string text(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(n));
    BioPtr bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    return X509ReqPtr(PEM_read_bio_X509_REQ(bio.get(), nullptr, nullptr, nullptr));
}

TEST(X509ExtractRsaKey, ReadsBigEndianLengthsAndRefusesNumbersPastTheBlock) {
    const struct {
        Bytes block;
        ExitStatus status;
        std::string out;
    } rows[] = {
        {{0x00, 0x02, 0x01, 0x02, 0x00, 0x01, 0x03}, ST_OK, ""},
        {{0x00, 0x00, 0x00, 0x00}, ST_OK, ""},  // zero lengths give zero values
        {{0x00, 0x03, 0x01, 0x02}, ST_FAILURE, "Failed to get modulus\n"},
        {{0x00}, ST_FAILURE, "Failed to get modulus\n"},
        {{0x00, 0x01, 0x07, 0x00, 0x02, 0x01}, ST_FAILURE, "Failed to get public exponent\n"},
        {{0x00, 0x01, 0x07, 0x00}, ST_FAILURE, "Failed to get public exponent\n"},
    };
    for (const auto& r : rows) {
        RsaNumbers key;
        testing::internal::CaptureStdout();
        EXPECT_EQ(extract_rsa_key(r.block, key), r.status);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), r.out);
    }
    RsaNumbers key;
    ASSERT_EQ(extract_rsa_key(Bytes{0x00, 0x02, 0x01, 0x02, 0x00, 0x01, 0x03}, key), ST_OK);
    EXPECT_EQ(BN_get_word(key.n.get()), 0x0102u);
    EXPECT_EQ(BN_get_word(key.e.get()), 3u);
}

TEST(X509Csr, IsSignedWithTheDummyKeyOfTheTerminalKeysClass) {
    const struct {
        int bits;
        int dummy_bits;
    } rows[] = {{1016, 2048}, {1017, 1024}, {1024, 1024}, {1025, 2048}, {2048, 2048}, {512, 2048}};
    for (const auto& r : rows) {
        X509ReqPtr req = csr(r.bits, "node", "digitalSignature");
        ASSERT_TRUE(req) << r.bits;
        RsaNumbers dummy;
        ASSERT_EQ(x509_dummy_key(terminal_key(r.bits).n.get(), dummy), ST_OK);
        EXPECT_EQ(BN_num_bits(dummy.n.get()), r.dummy_bits);
        dummy.d.reset();  // verify with the public half only
        EvpPkeyPtr pub = rsa_pkey(dummy);
        EXPECT_EQ(X509_REQ_verify(req.get(), pub.get()), 1) << r.bits;
        EXPECT_EQ(X509_REQ_get_signature_nid(req.get()), NID_sha256WithRSAEncryption);
        EXPECT_EQ(EVP_PKEY_get_bits(X509_REQ_get0_pubkey(req.get())), r.bits);
        EXPECT_EQ(X509_REQ_get_version(req.get()), 0);
    }
}

TEST(X509Csr, ARequestThatDoesNotFitTheRecordIsNotWritten_D11) {
    std::array<std::uint8_t, 4096> out{};
    // A 3000-byte modulus makes a PEM text well over 4096 bytes.
    RsaNumbers big = terminal_key(24000);
    EXPECT_EQ(x509_csr(out, big, x509_subject_text("", "n", csr_max_cn), ""), 0u);
}

}  // namespace
