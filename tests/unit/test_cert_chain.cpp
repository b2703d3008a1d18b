// The choice of trust anchor by a certificate's subject and issuer.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include <openssl/x509.h>

#include "base/ossl.hpp"
#include "base/paths.hpp"
#include "base/shared.hpp"
#include "verify/cert_chain.hpp"

namespace {

// Only the names matter to the choice; the certificate need not be signed.
X509Ptr named(const char* subject, const char* issuer) {
    X509Ptr cert(X509_new());
    auto set_cn = [](X509_NAME* name, const char* cn) {
        if (cn != nullptr) {
            X509_NAME_add_entry_by_NID(name, NID_commonName, MBSTRING_UTF8,
                                       reinterpret_cast<const unsigned char*>(cn), -1, -1, 0);
        } else {
            X509_NAME_add_entry_by_NID(name, NID_organizationName, MBSTRING_UTF8,
                                       reinterpret_cast<const unsigned char*>("Orvin"), -1, -1, 0);
        }
    };
    set_cn(X509_get_subject_name(cert.get()), subject);
    set_cn(X509_get_issuer_name(cert.get()), issuer);
    return cert;
}

struct AnchorCase {
    const char* name;
    const char* subject;
    const char* issuer;
    int flag_before;
    const char* anchor;
    int flag_after;
};

void PrintTo(const AnchorCase& c, std::ostream* os) {
    *os << c.name;
}

class AnchorChoice : public ::testing::TestWithParam<AnchorCase> {
  protected:
    void TearDown() override { orvin_rki_ca = 0; }
};

TEST_P(AnchorChoice, FollowsRoleAndFlag) {
    const AnchorCase& c = GetParam();
    orvin_rki_ca = c.flag_before;
    X509Ptr cert = named(c.subject, c.issuer);
    EXPECT_STREQ(cert_verify_ca_file(cert.get()), c.anchor);
    EXPECT_EQ(orvin_rki_ca, c.flag_after);
}

constexpr const char* bundle = paths::anchor_bundle;
constexpr const char* rki = paths::anchor_rki;

INSTANTIATE_TEST_SUITE_P(
    Cases, AnchorChoice,
    ::testing::Values(
        AnchorCase{"other_follows_flag_1", "acme", "prod-sign", 1, rki, 1},
        AnchorCase{"other_follows_flag_0", "acme", "prod-sign", 0, bundle, 0},
        AnchorCase{"main_user_always_bundle", "main-user", "keysign-main-user", 1, bundle, 1},
        AnchorCase{"main_user_cut_at_slash", "main-user/extra", "x", 1, bundle, 1},
        AnchorCase{"main_user_prefix_is_not_enough", "main-users", "x", 1, rki, 1},
        AnchorCase{"detamper_always_bundle", "detamper", "Orvin Test Root CA", 1, bundle, 1},
        AnchorCase{"keysigning_prod_sign_clears_flag", "prod-sign", "KeySigning", 1, bundle, 0},
        AnchorCase{"keysigning_cut_at_slash", "prod-sign/x", "KeySigning/y", 1, bundle, 0},
        AnchorCase{"prod_sign_from_other_ca", "prod-sign", "Orvin Test Root CA", 1, rki, 1},
        AnchorCase{"keysigning_issuing_other", "acme", "KeySigning", 1, rki, 1},
        AnchorCase{"case_matters", "Main-User", "x", 1, rki, 1},
        AnchorCase{"no_issuer_cn_means_default", "main-user", nullptr, 1, rki, 1},
        AnchorCase{"no_subject_cn_means_default", nullptr, "KeySigning", 0, bundle, 0}));

TEST(AnchorChoiceWithoutCertificate, IsTheDefault) {
    orvin_rki_ca = 1;
    EXPECT_STREQ(cert_verify_ca_file(nullptr), rki);
    orvin_rki_ca = 0;
    EXPECT_STREQ(cert_verify_ca_file(nullptr), bundle);
}

}  // namespace
