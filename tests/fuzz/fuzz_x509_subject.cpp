// Building the certificate request from the subject and key usage texts the terminal's record
// supplies: subject entries and key usage extensions made from text nobody checked.
#include <openssl/bn.h>
#include <openssl/err.h>

#include <array>
#include <string>

#include "fuzz_check.hpp"
#include "x509/x509_build.hpp"

namespace {

// A fixed 1024-bit public key, so each run costs one signature with the small dummy key.
RsaNumbers terminal_key() {
    RsaNumbers key;
    BIGNUM* n = nullptr;
    BIGNUM* e = nullptr;
    std::string hex(256, 'C');
    hex.back() = '5';
    FUZZ_CHECK(BN_hex2bn(&n, hex.c_str()) != 0 && BN_dec2bn(&e, "65537") != 0);
    key.n.reset(n);
    key.e.reset(e);
    return key;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const RsaNumbers terminal = terminal_key();
    // The subject, a zero byte, then the key usage: both are C texts where they come from.
    const std::string_view input = fuzz_text(data, size);
    const std::size_t cut = input.find('\0');
    const std::string subject(input.substr(0, cut));
    const std::string key_usage(cut == std::string_view::npos ? "" : input.substr(cut + 1));
    if (subject.size() > 255 || key_usage.size() > 255 ||
        key_usage.find('\0') != std::string::npos) {
        return 0;
    }
    static std::array<std::uint8_t, 4096> out;
    const std::size_t written = x509_csr(out, terminal, subject, key_usage);
    FUZZ_CHECK(written <= out.size());
    if (written > 0) {
        const std::string_view pem(reinterpret_cast<const char*>(out.data()), written);
        FUZZ_CHECK(pem.starts_with("-----BEGIN CERTIFICATE REQUEST-----"));
    }
    ERR_clear_error();
    return 0;
}
