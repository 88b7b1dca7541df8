#include "tool/login/tls_alert.h"

#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include <openssl/x509.h>

namespace Kes::test {
namespace {

TEST(TlsAlertTest, KnownAlertIsExplained) {
    const tool::AlertExplanation alert = tool::explain_alert(116);
    EXPECT_EQ(alert.name, "certificate_required");
    EXPECT_EQ(alert.meaning, "the server requires a certificate and received none");
    EXPECT_EQ(alert.remedy, "check that the key can sign with one of the server's algorithms");
}

TEST(TlsAlertTest, UnknownAlertHasItsNumber) {
    const tool::AlertExplanation alert = tool::explain_alert(200);
    EXPECT_EQ(alert.name, "alert 200");
    EXPECT_EQ(alert.remedy, "look at the server's log, which names the reason");
}

TEST(TlsAlertTest, RemedyForTheServersCertificateDependsOnItsMistake) {
    const std::string authorities = "if the server is the right one, name its authorities with --ca";
    const std::string name = "use a name from the server's certificate in the address, or give it with --sni";
    const std::string dates =
        "check the clock of this computer; if it is right, the server needs a new certificate";
    const std::vector<std::pair<int, std::string>> rows{
        {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT, authorities},
        {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, authorities},
        {X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE, authorities},
        {X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT, authorities},
        {X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN, authorities},
        {X509_V_ERR_CERT_SIGNATURE_FAILURE, authorities},
        {X509_V_ERR_CERT_UNTRUSTED, authorities},
        {X509_V_ERR_HOSTNAME_MISMATCH, name},
        {X509_V_ERR_IP_ADDRESS_MISMATCH, name},
        {X509_V_ERR_CERT_HAS_EXPIRED, dates},
        {X509_V_ERR_CERT_NOT_YET_VALID, dates},
        {X509_V_ERR_INVALID_PURPOSE, "ask the server's administrator for another certificate"}};
    for (const auto& [check, remedy] : rows) {
        const tool::AlertExplanation alert = tool::explain_sent_alert(42, check);
        EXPECT_EQ(alert.name, "bad_certificate");
        EXPECT_EQ(alert.meaning, "this program rejects the server's certificate");
        EXPECT_EQ(alert.remedy, remedy);
    }
}

TEST(TlsAlertTest, AlertForAnUnknownProtocolDoesNotBlameTheCertificate) {
    const tool::AlertExplanation alert = tool::explain_sent_alert(70, X509_V_OK);
    EXPECT_EQ(alert.name, "protocol_version");
    EXPECT_EQ(alert.meaning, "this program cannot use what the server sent");
    EXPECT_EQ(alert.remedy, "check that the address and the port are those of a TLS server");
}

} // namespace
} // namespace Kes::test
