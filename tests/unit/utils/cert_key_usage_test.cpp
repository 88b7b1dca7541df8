#include "utils/cert_key_usage.h"

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <sstream>

#include "hooks.h"
#include "support/support.h"
#include "unit_certs.h"
#include "utils/cert_ossl.h"
#include "utils/error.h"

namespace Kes {
namespace {

using test::error_text;
using test::Lines;
using test::OsslCalls;
using test::text_of;
using test::unit_cert;

constexpr auto client_auth = "1.3.6.1.5.5.7.3.2";
constexpr auto unknown_type = static_cast<FilterType>(7);

CertKeyUsage usage_of(const std::string& cert) { return CertKeyUsage(unit_cert(cert)); }

constexpr auto empty_text = "key usage:\n"
                            "  _kuse_mask=\"none\" (0x0)\n"
                            "  _xkuse_mask=\"none\" (0x0)\n"
                            "  _xkuse_nid_list=\"\"\n";

TEST(KeyUsageMaskNameTest, EveryBitHasAName) {
    EXPECT_EQ(key_usage_mask_name(0x0001), "encipher_only");
    EXPECT_EQ(key_usage_mask_name(0x0002), "crl_sign");
    EXPECT_EQ(key_usage_mask_name(0x0004), "key_cert_sign");
    EXPECT_EQ(key_usage_mask_name(0x0008), "key_agreement");
    EXPECT_EQ(key_usage_mask_name(0x0010), "data_encipherment");
    EXPECT_EQ(key_usage_mask_name(0x0020), "key_encipherment");
    EXPECT_EQ(key_usage_mask_name(0x0040), "non_repudiation");
    EXPECT_EQ(key_usage_mask_name(0x0080), "digital_signature");
    EXPECT_EQ(key_usage_mask_name(0x8000), "decipher_only");
}

TEST(KeyUsageMaskNameTest, SeveralNamesAreJoinedInBitOrder) {
    EXPECT_EQ(key_usage_mask_name(0x8001), "encipher_only|decipher_only");
    EXPECT_EQ(key_usage_mask_name(0xa0), "key_encipherment|digital_signature");
    EXPECT_EQ(key_usage_mask_name(0x80ff),
              "encipher_only|crl_sign|key_cert_sign|key_agreement|data_encipherment|key_encipherment|"
              "non_repudiation|digital_signature|decipher_only");
}

TEST(KeyUsageMaskNameTest, ZeroIsNamedNone) { EXPECT_EQ(key_usage_mask_name(0), "none"); }

TEST(KeyUsageMaskNameTest, BitsWithoutANameAreOmitted) {
    EXPECT_EQ(key_usage_mask_name(0xffff7f00U), "");
    EXPECT_EQ(key_usage_mask_name(0xffff7f80U), "digital_signature");
    EXPECT_EQ(key_usage_mask_name(0x0100), "");
}

TEST(ExtKeyUsageMaskNameTest, EveryBitHasAName) {
    EXPECT_EQ(ext_key_usage_mask_name(0x001), "ssl_server");
    EXPECT_EQ(ext_key_usage_mask_name(0x002), "ssl_client");
    EXPECT_EQ(ext_key_usage_mask_name(0x004), "smime");
    EXPECT_EQ(ext_key_usage_mask_name(0x008), "code_sign");
    EXPECT_EQ(ext_key_usage_mask_name(0x010), "sgc");
    EXPECT_EQ(ext_key_usage_mask_name(0x020), "ocsp_sign");
    EXPECT_EQ(ext_key_usage_mask_name(0x040), "timestamp");
    EXPECT_EQ(ext_key_usage_mask_name(0x080), "dvcs");
    EXPECT_EQ(ext_key_usage_mask_name(0x100), "anyeku");
}

TEST(ExtKeyUsageMaskNameTest, SeveralNamesAreJoinedInBitOrder) {
    EXPECT_EQ(ext_key_usage_mask_name(0x1ff),
              "ssl_server|ssl_client|smime|code_sign|sgc|ocsp_sign|timestamp|dvcs|anyeku");
    EXPECT_EQ(ext_key_usage_mask_name(0x102), "ssl_client|anyeku");
}

TEST(ExtKeyUsageMaskNameTest, ZeroIsNamedNone) { EXPECT_EQ(ext_key_usage_mask_name(0), "none"); }

TEST(ExtKeyUsageMaskNameTest, BitsWithoutANameAreOmitted) {
    EXPECT_EQ(ext_key_usage_mask_name(0xfffffe00U), "");
    EXPECT_EQ(ext_key_usage_mask_name(0x202), "ssl_client");
}

TEST(FilterTypeNameTest, OnlyTheThreeFilterTypesHaveNames) {
    EXPECT_EQ(filter_type_name(static_cast<FilterType>(0)), "all");
    EXPECT_EQ(filter_type_name(static_cast<FilterType>(1)), "exact");
    EXPECT_EQ(filter_type_name(static_cast<FilterType>(2)), "exact_none");
    EXPECT_EQ(filter_type_name(static_cast<FilterType>(3)), "");
    EXPECT_EQ(filter_type_name(unknown_type), "");
    EXPECT_EQ(filter_type_name(static_cast<FilterType>(0xffffffffU)), "");
}

/// Clears the OpenSSL error queue before each test and expects it to be empty afterwards.
class CertKeyUsageTest : public testing::Test {
protected:
    CertKeyUsageTest() { ::ERR_clear_error(); }
    ~CertKeyUsageTest() override {
        EXPECT_EQ(::ERR_peek_error(), 0UL) << "something was left on the error queue";
        ::ERR_clear_error();
    }
};

TEST_F(CertKeyUsageTest, DefaultKeyUsageIsEmpty) {
    const CertKeyUsage dummy;
    EXPECT_EQ(dummy.kuse_mask(), 0U);
    EXPECT_EQ(dummy.xkuse_mask(), 0U);
    EXPECT_EQ(dummy.xkuse_nid_list(), Lines());
    EXPECT_EQ(text_of(dummy), empty_text);
}

TEST_F(CertKeyUsageTest, CertificateWithoutExtensionsHasAnEmptyKeyUsage) {
    EXPECT_EQ(text_of(usage_of("ku_none_eku_none")), empty_text);
}

TEST_F(CertKeyUsageTest, TextHasFourLines) {
    EXPECT_EQ(text_of(usage_of("ku_a0_eku_email_client")),
              "key usage:\n"
              "  _kuse_mask=\"key_encipherment|digital_signature\" (0xa0)\n"
              "  _xkuse_mask=\"ssl_client|smime\" (0x6)\n"
              "  _xkuse_nid_list=\"1.3.6.1.5.5.7.3.4,1.3.6.1.5.5.7.3.2\"\n");
}

TEST_F(CertKeyUsageTest, PrintingRestoresDecimalOutput) {
    std::ostringstream out;
    out << usage_of("ku_a0_eku_client") << 255;
    EXPECT_TRUE(out.str().ends_with("\"\n255")) << out.str();
}

TEST_F(CertKeyUsageTest, OneKeyUsageIsRead) {
    const CertKeyUsage key_usage = usage_of("ku_80_eku_none");
    EXPECT_EQ(key_usage.kuse_mask(), 0x80U);
    EXPECT_EQ(key_usage.xkuse_mask(), 0U);
    EXPECT_EQ(key_usage.xkuse_nid_list(), Lines());
}

TEST_F(CertKeyUsageTest, AllNineKeyUsagesAreRead) {
    EXPECT_EQ(usage_of("all_key_usages").kuse_mask(), 0x80ffU);
    EXPECT_EQ(usage_of("only_decipher_only").kuse_mask(), 0x8000U);
}

TEST_F(CertKeyUsageTest, ExtKeyUsagesKeepTheOrderOfTheCertificate) {
    const CertKeyUsage key_usage = usage_of("all_ext_key_usages");
    EXPECT_EQ(key_usage.kuse_mask(), 0U);
    EXPECT_EQ(key_usage.xkuse_mask(), 0x1ffU);
    EXPECT_EQ(key_usage.xkuse_nid_list(),
              (Lines{"1.3.6.1.5.5.7.3.1", "1.3.6.1.5.5.7.3.2", "1.3.6.1.5.5.7.3.4", "1.3.6.1.5.5.7.3.3",
                     "1.3.6.1.4.1.311.10.3.3", "1.3.6.1.5.5.7.3.9", "1.3.6.1.5.5.7.3.8", "1.3.6.1.5.5.7.3.10",
                     "2.5.29.37.0"}));
}

TEST_F(CertKeyUsageTest, UnknownExtKeyUsageIsListedByNumberWithoutAMaskBit) {
    const CertKeyUsage key_usage = usage_of("unknown_ext_key_usage");
    EXPECT_EQ(key_usage.xkuse_mask(), 0U);
    EXPECT_EQ(key_usage.xkuse_nid_list(), (Lines{"1.3.6.1.4.1.99999.1.2.3"}));
}

TEST_F(CertKeyUsageTest, CriticalExtKeyUsageIsReadLikeAnyOther) {
    const CertKeyUsage key_usage = usage_of("critical_ext_key_usage");
    EXPECT_EQ(key_usage.xkuse_mask(), 0x2U);
    EXPECT_EQ(key_usage.xkuse_nid_list(), (Lines{client_auth}));
}

TEST_F(CertKeyUsageTest, LongExtKeyUsageIsTruncatedTo1023Characters) {
    std::string whole = "1.2";
    for (int i = 0; i < 100; ++i)
        whole += ".1234567890";
    EXPECT_EQ(usage_of("long_ext_key_usage").xkuse_nid_list(), (Lines{whole.substr(0, 1023)}));
}

TEST_F(CertKeyUsageTest, ExtKeyUsageThatOpensslCannotFormatDoesNotStopTheList) {
    const CertKeyUsage key_usage = usage_of("huge_arc_ext_key_usage");
    ASSERT_EQ(key_usage.xkuse_nid_list().size(), 2U);
    EXPECT_EQ(key_usage.xkuse_nid_list()[1], client_auth);
}

TEST_F(CertKeyUsageTest, EmptyExtensionsAreReadAsNone) {
    EXPECT_EQ(text_of(usage_of("empty_key_usage")), empty_text);
    EXPECT_EQ(text_of(usage_of("empty_ext_key_usage")), empty_text);
}

TEST_F(CertKeyUsageTest, InvalidExtensionIsReadAsMaskZero) {
    EXPECT_EQ(text_of(usage_of("broken_ext_key_usage")), empty_text);
    EXPECT_EQ(text_of(usage_of("broken_key_usage")), "key usage:\n"
                                                     "  _kuse_mask=\"none\" (0x0)\n"
                                                     "  _xkuse_mask=\"none\" (0x0)\n"
                                                     "  _xkuse_nid_list=\"1.3.6.1.5.5.7.3.2\"\n");
}

TEST_F(CertKeyUsageTest, DuplicateExtensionIsReadAsNone) {
    EXPECT_EQ(text_of(usage_of("doubled_ext_key_usage")), empty_text);
}

TEST_F(CertKeyUsageTest, EarlierErrorsStayOnTheQueue) {
    ERR_raise(ERR_LIB_USER, 42);
    const unsigned long before = ::ERR_peek_error();
    usage_of("broken_ext_key_usage");
    EXPECT_EQ(::ERR_get_error(), before);
}

TEST_F(CertKeyUsageTest, NullPointerThrows) {
    EXPECT_EQ(error_text([] { CertKeyUsage key_usage(static_cast<X509*>(nullptr)); }),
              "cert_key_usage:49 Kes::CertKeyUsage::CertKeyUsage(): x509 is a null pointer: val=3 "
              "(bad_argument)");
}

TEST_F(CertKeyUsageTest, InvalidCertificateThrowsTheErrorOfTheDecoder) {
    EXPECT_EQ(test::mask_queue(error_text([] {
                  CertKeyUsage key_usage(std::vector<unsigned char>{1, 2});
              })),
              "cert_ossl:55 Kes::OsslCert::OsslCert(): error converting certificate from DER to X509 format: "
              "rc=0\n<queue>");
}

TEST_F(CertKeyUsageTest, EveryConstructorReadsTheSameKeyUsage) {
    for (const char* name : {"ku_a0_eku_email_client", "all_key_usages", "ku_none_eku_none"}) {
        const OsslCert cert(unit_cert(name));
        const Cert& any_cert = cert;
        const std::string expected = text_of(usage_of(name));
        EXPECT_EQ(text_of(CertKeyUsage(cert.x509())), expected);
        EXPECT_EQ(text_of(CertKeyUsage(any_cert)), expected);
    }
}

TEST_F(CertKeyUsageTest, CertificateThatCannotBeEncodedThrows) {
    const OsslCert cert(unit_cert("plain"));
    const Cert& any_cert = cert;
    OsslCalls calls;
    calls.encode_failing_call = 1;
    EXPECT_EQ(
        error_text([&] { CertKeyUsage key_usage(any_cert); }),
        "cert_ossl:127 Kes::OsslCert::get_der_data(): error converting certificate to DER format: rc=-1");
}

TEST_F(CertKeyUsageTest, ReleasesAllOpensslObjects) {
    const OsslCalls calls;
    usage_of("all_ext_key_usages");
    EXPECT_EQ(calls.decoded_x509s, 1);
    EXPECT_EQ(calls.freed_x509s, 1);
    EXPECT_EQ(calls.read_extensions, 1);
    EXPECT_EQ(calls.freed_stacks, 1);
}

TEST_F(CertKeyUsageTest, CallerX509IsNotFreed) {
    const OsslCert cert(unit_cert("ku_80_eku_client"));
    const OsslCalls calls;
    CertKeyUsage key_usage(cert.x509());
    EXPECT_EQ(calls.freed_x509s, 0);
    EXPECT_EQ(calls.decoded_x509s, 0);
}

} // namespace
} // namespace Kes
