#include "tool/key_verdict.h"

#include <gtest/gtest.h>

#include "base/ossl_scard_cfg_imp.h"

namespace Kes::test {
namespace {

class KeyVerdictTest : public testing::Test {
protected:
    std::string text(KeyVerdict verdict, const tool::CertificateFacts* facts) const {
        const tool::CodedText coded = tool::describe_verdict(verdict, CfgReader(cfg_), facts);
        return coded.code + ": " + coded.text;
    }

    static std::string warnings(const tool::CertificateFacts& facts) {
        std::string text;
        for (const tool::CodedText& warning : tool::certificate_warnings(facts))
            text += warning.code + ": " + warning.text + "\n";
        return text;
    }

    OsslScardCfgImp cfg_{OsslScardCfg::pkcs11};
    tool::CertificateFacts facts_;
};

TEST_F(KeyVerdictTest, OfferedKeyAndKeysWithoutUsableCertificateHaveTheirOwnTexts) {
    EXPECT_EQ(text(KeyVerdict::offered, nullptr), "offered: offered");
    EXPECT_EQ(text(KeyVerdict::no_certificate, nullptr),
              "no_certificate: not offered: no certificate on the token has its id");
    EXPECT_EQ(text(KeyVerdict::no_key_usage, nullptr),
              "no_key_usage: not offered: the key usage of the certificate is not known");
}

TEST_F(KeyVerdictTest, WrongKeyUsageNamesWhatIsWantedAndPresent) {
    cfg_.set_kuse_filter(0xa0);
    EXPECT_EQ(text(KeyVerdict::wrong_key_usage, nullptr),
              "wrong_key_usage: not offered: the filter wants digitalSignature, keyEncipherment, the "
              "certificate has no key usage");
    facts_.key_usages = {"nonRepudiation", "keyEncipherment"};
    EXPECT_EQ(text(KeyVerdict::wrong_key_usage, &facts_),
              "wrong_key_usage: not offered: the filter wants digitalSignature, keyEncipherment, the "
              "certificate has nonRepudiation, keyEncipherment");
}

TEST_F(KeyVerdictTest, FilterWithoutKeyUsageIsExplained) {
    EXPECT_EQ(text(KeyVerdict::wrong_key_usage, &facts_),
              "wrong_key_usage: not offered: the filter wants a key usage, the certificate has no key usage");
    facts_.key_usages = {"digitalSignature"};
    EXPECT_EQ(text(KeyVerdict::wrong_key_usage, &facts_),
              "wrong_key_usage: not offered: the filter names no key usage, which no certificate with a key "
              "usage passes; this certificate has digitalSignature");
}

TEST_F(KeyVerdictTest, WrongExtendedKeyUsageNamesWhatIsWantedAndPresent) {
    cfg_.set_xkuse_nid_filter("1.3.6.1.5.5.7.3.2");
    EXPECT_EQ(text(KeyVerdict::wrong_ext_key_usage, &facts_),
              "wrong_extended_key_usage: not offered: the filter wants clientAuth (1.3.6.1.5.5.7.3.2), the "
              "certificate has no extended key usage");
    cfg_.set_xkuse_nid_filter("1.2.99.1");
    facts_.extended_key_usages = {"emailProtection"};
    EXPECT_EQ(text(KeyVerdict::wrong_ext_key_usage, &facts_),
              "wrong_extended_key_usage: not offered: the filter wants 1.2.99.1, the certificate has "
              "emailProtection");
    cfg_.set_xkuse_nid_filter("");
    EXPECT_EQ(text(KeyVerdict::wrong_ext_key_usage, &facts_),
              "wrong_extended_key_usage: not offered: the filter wants an extended key usage with an empty "
              "number, the certificate has emailProtection");
}

TEST_F(KeyVerdictTest, FilterThatIsNotDottedIsExplained) {
    cfg_.set_xkuse_nid_filter("clientAuth");
    facts_.extended_key_usages = {"clientAuth"};
    EXPECT_EQ(text(KeyVerdict::wrong_ext_key_usage, &facts_),
              "wrong_extended_key_usage: not offered: the filter 'clientAuth' is not an object identifier in "
              "dotted form, such as 1.3.6.1.5.5.7.3.2, so it matches no extended key usage");
}

TEST_F(KeyVerdictTest, CertificateWithoutProblemsHasNoWarning) {
    EXPECT_EQ(warnings(facts_), "");
    facts_.key_usages = {"digitalSignature"};
    facts_.extended_key_usages = {"emailProtection", "clientAuth"};
    EXPECT_EQ(warnings(facts_), "");
}

TEST_F(KeyVerdictTest, ExpiryNamesTheDay) {
    facts_.is_expired = true;
    EXPECT_EQ(warnings(facts_), "expired: expired today\n");
    facts_.days_left = -1;
    EXPECT_EQ(warnings(facts_), "expired: expired yesterday\n");
    facts_.days_left = -2;
    EXPECT_EQ(warnings(facts_), "expired: expired 2 days ago\n");
}

TEST_F(KeyVerdictTest, OtherReasonsForAFailedLoginAreWarnings) {
    facts_.is_not_yet_valid = true;
    facts_.not_before = "2030-01-02T03:04:05Z";
    facts_.key_usages = {"keyEncipherment"};
    facts_.extended_key_usages = {"emailProtection"};
    EXPECT_EQ(warnings(facts_), "not_yet_valid: not valid until 2030-01-02T03:04:05Z\n"
                                "no_digital_signature: no digitalSignature in key usage\n"
                                "no_client_authentication: no client authentication in extended key usage\n");
}

} // namespace
} // namespace Kes::test
