#include "utils/ossl_helper.h"

#include <gtest/gtest.h>
#include <openssl/err.h>

#include "hooks.h"
#include "support/support.h"
#include "unit_certs.h"
#include "utils/cert_ossl.h"

namespace Kes {
namespace {

using test::error_text;
using test::mask_queue;
using test::OsslCalls;
using test::unit_cert;

class OsslHelperTest : public testing::Test {
protected:
    OsslHelperTest() { ::ERR_clear_error(); }
    ~OsslHelperTest() override { ::ERR_clear_error(); }

    const OsslCert plain{unit_cert("plain")};
};

TEST_F(OsslHelperTest, ReturnsSubjectAndIssuer) {
    EXPECT_EQ(OsslHelper::cert_name_to_str(plain.x509(), OsslHelper::subject), "CN=a");
    EXPECT_EQ(OsslHelper::cert_name_to_str(plain.x509(), OsslHelper::issuer), "CN=b");
}

TEST_F(OsslHelperTest, OneSelectsTheSubjectAndEveryOtherValueTheIssuer) {
    EXPECT_EQ(OsslHelper::cert_name_to_str(plain.x509(), 1), "CN=a");
    for (const int which : {0, 2, 3, -1, 255})
        EXPECT_EQ(OsslHelper::cert_name_to_str(plain.x509(), which), "CN=b") << which;
}

TEST_F(OsslHelperTest, NameWithoutAttributesIsEmpty) {
    const OsslCert cert(unit_cert("no_names"));
    EXPECT_EQ(OsslHelper::cert_name_to_str(cert.x509(), OsslHelper::subject), "");
    EXPECT_EQ(OsslHelper::cert_name_to_str(cert.x509(), OsslHelper::issuer), "");
}

TEST_F(OsslHelperTest, NameOfSeveralAttributesIsFormattedByOpenssl) {
    const OsslCert cert(unit_cert("long_names"));
    const std::string name = OsslHelper::cert_name_to_str(cert.x509(), OsslHelper::subject);
    EXPECT_TRUE(name.starts_with("C=DE, O=M\\xC3\\xBCller, S\\xC3\\xB6hne ")) << name;
    EXPECT_NE(name.find(", OU='quoted', CN=a"), std::string::npos) << name;
}

TEST_F(OsslHelperTest, NameIsPrintedInTheCompatibleFormatWithIndentTwo) {
    const OsslCalls calls;
    OsslHelper::cert_name_to_str(plain.x509(), OsslHelper::subject);
    EXPECT_EQ(calls.name_print_indent, 2);
    EXPECT_EQ(calls.name_print_flags, 0UL);
}

TEST_F(OsslHelperTest, MemoryBioIsReleased) {
    const OsslCalls calls;
    OsslHelper::cert_name_to_str(plain.x509(), OsslHelper::subject);
    EXPECT_EQ(calls.created_bios, 1);
    EXPECT_EQ(calls.freed_bios, 1);
}

TEST_F(OsslHelperTest, NullCertificateThrows) {
    for (const int which : {OsslHelper::subject, OsslHelper::issuer})
        EXPECT_EQ(error_text([&] { OsslHelper::cert_name_to_str(nullptr, which); }),
                  "ossl_helper:110 Kes::OsslHelper::cert_name_to_str(): cert is a null pointer: val=3 "
                  "(bad_argument)");
}

TEST_F(OsslHelperTest, FailedPrintThrowsTheResult) {
    for (const int result : {0, -1, 2}) {
        OsslCalls calls;
        calls.name_print_result = result;
        EXPECT_EQ(error_text([&] { OsslHelper::cert_name_to_str(plain.x509(), OsslHelper::subject); }),
                  "ossl_helper:123 Kes::OsslHelper::cert_name_to_str(): X509_NAME_print_ex() failed: rc=" +
                      std::to_string(result));
        EXPECT_EQ(calls.freed_bios, calls.created_bios);
        EXPECT_EQ(calls.created_bios, 2); // one for the name and one for the error
    }
}

TEST_F(OsslHelperTest, FailedPrintReportsTheErrorQueue) {
    OsslCalls calls;
    calls.name_print_result = 0;
    ERR_raise(ERR_LIB_USER, 1);
    EXPECT_EQ(
        mask_queue(error_text([&] { OsslHelper::cert_name_to_str(plain.x509(), OsslHelper::issuer); })),
        "ossl_helper:123 Kes::OsslHelper::cert_name_to_str(): X509_NAME_print_ex() failed: rc=0\n<queue>");
    EXPECT_EQ(::ERR_peek_error(), 0UL);
}

TEST_F(OsslHelperTest, FailureToCreateTheMemoryBioIsReportedAsAFailedPrint) {
    OsslCalls calls;
    calls.is_bio_refused = true;
    const std::string text =
        error_text([&] { OsslHelper::cert_name_to_str(plain.x509(), OsslHelper::subject); });
    EXPECT_EQ(text, "ossl_helper:123 Kes::OsslHelper::cert_name_to_str(): X509_NAME_print_ex() failed: rc=0");
    EXPECT_EQ(calls.freed_bios, 0);
}

} // namespace
} // namespace Kes
