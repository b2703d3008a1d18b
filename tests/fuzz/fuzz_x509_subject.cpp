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
    std::array<std::uint8_t, 128> modulus;
    modulus.fill(0xCC);
    modulus.back() = 0xC5;
    RsaNumbers key;
    key.n.reset(BN_bin2bn(modulus.data(), modulus.size(), nullptr));
    key.e.reset(BN_new());
    FUZZ_CHECK(key.n && key.e && BN_set_word(key.e.get(), 65537) == 1);
    return key;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const RsaNumbers terminal = terminal_key();
    // The subject, a zero byte, then the key usage: both are C texts where they come from.
    const auto [subject, key_usage] = fuzz_cut(fuzz_text(data, size), '\0');
    if (subject.size() > 255 || key_usage.size() > 255 ||
        key_usage.find('\0') != std::string_view::npos) {
        return 0;
    }
    static std::array<std::uint8_t, 4096> out;
    const std::size_t written =
        x509_csr(out, terminal, std::string(subject), std::string(key_usage));
    FUZZ_CHECK(written <= out.size());
    if (written > 0) {
        const std::string_view pem(reinterpret_cast<const char*>(out.data()), written);
        FUZZ_CHECK(pem.starts_with("-----BEGIN CERTIFICATE REQUEST-----"));
    }
    ERR_clear_error();
    return 0;
}
