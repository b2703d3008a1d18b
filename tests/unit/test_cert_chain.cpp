// The choice of trust anchor by a certificate's names: the edges beyond the roles the system tests
// verify against real chains.
#include <gtest/gtest.h>
#include <openssl/x509.h>

#include "base/ossl.hpp"
#include "base/paths.hpp"
#include "base/shared.hpp"
#include "verify/cert_chain.hpp"

namespace {

// Only the names matter to the choice; the certificate need not be signed. No common name when
// cn is null.
void set_cn(X509_NAME* name, const char* cn) {
    const int nid = cn != nullptr ? NID_commonName : NID_organizationName;
    X509_NAME_add_entry_by_NID(name, nid, MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(cn ? cn : "Orvin"), -1, -1,
                               0);
}

TEST(AnchorChoice, FollowsNamesAndFlag) {
    constexpr const char* bundle = paths::anchor_bundle;
    constexpr const char* rki = paths::anchor_rki;
    const struct {
        const char* subject;
        const char* issuer;
        int flag_before;
        const char* anchor;
    } rows[] = {
        {"main-user/extra", "x", 1, bundle}, {"main-users", "x", 1, rki},
        {"Main-User", "x", 1, rki},          {"prod-sign/x", "KeySigning/y", 1, bundle},
        {"acme", "KeySigning", 1, rki},      {"main-user", nullptr, 1, rki},
        {nullptr, "KeySigning", 0, bundle},
    };
    for (const auto& r : rows) {
        X509Ptr cert(X509_new());
        set_cn(X509_get_subject_name(cert.get()), r.subject);
        set_cn(X509_get_issuer_name(cert.get()), r.issuer);
        orvin_rki_ca = r.flag_before;
        EXPECT_STREQ(cert_verify_ca_file(cert.get()), r.anchor) << r.subject << " / " << r.issuer;
        EXPECT_EQ(orvin_rki_ca, r.flag_before) << r.subject << " / " << r.issuer;
    }
}

}  // namespace
