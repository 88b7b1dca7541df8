#include "utils/cert_ossl.h"

#include <array>
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <sstream>
#include <type_traits>

#include "flush_recorder.h"
#include "hooks.h"
#include "support/support.h"
#include "unit_certs.h"
#include "utils/error.h"
#include "utils/logger.h"

namespace Kes {
namespace {

using test::Bytes;
using test::error_text;
using test::FlushRecorder;
using test::Lines;
using test::LogCapture;
using test::mask_queue;
using test::OsslCalls;
using test::read_file;
using test::TempDir;
using test::text_of;
using test::unit_cert;

constexpr auto not_decoded =
    "cert_ossl:55 Kes::OsslCert::OsslCert(): error converting certificate from DER to X509 format: "
    "rc=0\n<queue>";

static_assert(std::is_abstract_v<Cert> && std::has_virtual_destructor_v<Cert>);
static_assert(!std::is_copy_constructible_v<OsslCert> && !std::is_copy_assignable_v<OsslCert>);
static_assert(!std::is_constructible_v<OsslCert, X509*>, "an X509 cannot be adopted");

/// Disables logging and clears the OpenSSL error queue.
class OsslCertTest : public testing::Test {
protected:
    OsslCertTest() {
        Logger::destroy_instance();
        ::ERR_clear_error();
    }
    ~OsslCertTest() override {
        Logger::destroy_instance();
        ::ERR_clear_error();
    }
};

/// A test double of a certificate, for tests of the base class.
class NamedCert final : public Cert {
public:
    Bytes get_der_data() const override { return {}; }
    void write_der_file(const std::string&) const override {}
    std::string get_subject_name() const override {
        read_names += "subject ";
        return subject;
    }
    std::string get_issuer_name() const override {
        read_names += "issuer ";
        return issuer;
    }
    std::string get_subject_name_simple() const override { return "simple"; }
    std::string get_issuer_name_simple() const override { return "simple"; }

    std::string subject = "CN=a";
    std::string issuer = "CN=b";
    mutable std::string read_names;
};

TEST(CertTest, TextShowsTheSubjectFirstAlthoughTheIssuerIsReadFirst) {
    const NamedCert cert;
    EXPECT_EQ(cert.to_string(), "subject='CN=a'; issuer='CN=b'");
    EXPECT_EQ(cert.read_names, "issuer subject ");
}

TEST(CertTest, NamesAreNotEscaped) {
    NamedCert cert;
    cert.subject = "it's\na \\";
    cert.issuer = "";
    EXPECT_EQ(cert.to_string(), "subject='it's\na \\'; issuer=''");
}

TEST(CertTest, PrintWritesTheTextWithALineEndAndFlushes) {
    FlushRecorder buffer;
    std::ostream out(&buffer);
    EXPECT_EQ(&NamedCert().print(out), &out);
    EXPECT_EQ(buffer.str(), "subject='CN=a'; issuer='CN=b'\n");
    EXPECT_EQ(buffer.text_at_flush, buffer.str());
}

TEST(PointerTextTest, AddressHasSixteenUpperCaseDigits) {
    EXPECT_EQ(text_of(PointerText{nullptr}), "0x0000000000000000");
    EXPECT_EQ(text_of(PointerText{reinterpret_cast<void*>(0xabcdef)}), "0x0000000000ABCDEF");
    EXPECT_EQ(text_of(PointerText{reinterpret_cast<void*>(0xfedcba9876543210)}), "0xFEDCBA9876543210");
}

TEST_F(OsslCertTest, ReturnsExactlyTheBytesOfTheConstructor) {
    for (const char* name : {"plain", "long_names", "no_names", "all_key_usages"}) {
        const Bytes der = unit_cert(name);
        EXPECT_EQ(OsslCert(der).get_der_data(), der) << name;
    }
}

TEST_F(OsslCertTest, EncodingsAroundTheBufferSizeOfOneMebibyteAreUnchanged) {
    constexpr std::size_t limit = 1048576;
    const std::array<std::pair<const char*, std::size_t>, 3> sizes{
        {{"one_below_limit", limit - 1}, {"at_limit", limit}, {"one_above_limit", limit + 1}}};
    for (const auto& [name, size] : sizes) {
        const Bytes der = unit_cert(name);
        ASSERT_EQ(der.size(), size);
        EXPECT_TRUE(OsslCert(der).get_der_data() == der) << name;
    }
}

TEST_F(OsslCertTest, EncodingFarLargerThanTheBufferIsUnchanged) {
    const Bytes der = unit_cert("far_above_limit");
    ASSERT_GT(der.size(), 1300000U);
    EXPECT_TRUE(OsslCert(der).get_der_data() == der);
}

TEST_F(OsslCertTest, BytesAfterTheCertificateAreIgnored) {
    const Bytes der = unit_cert("plain");
    Bytes longer = der;
    longer.insert(longer.end(), {1, 2, 3});
    EXPECT_EQ(OsslCert(longer).get_der_data(), der);
}

TEST_F(OsslCertTest, ReturnsSubjectAndIssuer) {
    const OsslCert cert(unit_cert("plain"));
    EXPECT_EQ(cert.get_subject_name(), "CN=a");
    EXPECT_EQ(cert.get_issuer_name(), "CN=b");
    EXPECT_EQ(cert.to_string(), "subject='CN=a'; issuer='CN=b'");
}

TEST_F(OsslCertTest, SimpleNamesAreTheFullNames) {
    for (const char* name : {"plain", "long_names", "no_names"}) {
        const OsslCert cert(unit_cert(name));
        EXPECT_EQ(cert.get_subject_name_simple(), cert.get_subject_name());
        EXPECT_EQ(cert.get_issuer_name_simple(), cert.get_issuer_name());
    }
    EXPECT_EQ(OsslCert(unit_cert("plain")).get_subject_name_simple(), "CN=a");
    EXPECT_EQ(OsslCert(unit_cert("plain")).get_issuer_name_simple(), "CN=b");
}

TEST_F(OsslCertTest, CertificateWithoutNamesReturnsEmptyNames) {
    EXPECT_EQ(OsslCert(unit_cert("no_names")).to_string(), "subject=''; issuer=''");
}

TEST_F(OsslCertTest, CreationAndDestructionAreTraced) {
    const LogCapture log;
    const void* x509 = nullptr;
    {
        const OsslCert cert(unit_cert("plain"));
        x509 = cert.x509();
        EXPECT_EQ(log.lines(), (Lines{"<trace> created OsslCert [x509=" + text_of(PointerText{x509}) + "]"}));
    }
    EXPECT_EQ(log.lines(), (Lines{"<trace> created OsslCert [x509=" + text_of(PointerText{x509}) + "]",
                                  "<trace> destroyed OsslCert [x509=" + text_of(PointerText{x509}) + "]"}));
}

TEST_F(OsslCertTest, X509IsFreedOnceOnDestruction) {
    const OsslCalls calls;
    {
        const OsslCert cert(unit_cert("plain"));
        cert.get_der_data();
        cert.to_string();
        EXPECT_EQ(calls.decoded_x509s, 1);
        EXPECT_EQ(calls.freed_x509s, 0);
    }
    EXPECT_EQ(calls.freed_x509s, 1);
    EXPECT_EQ(calls.created_bios, 2);
    EXPECT_EQ(calls.freed_bios, 2);
}

TEST_F(OsslCertTest, X509IsFreedBeforeTheDestructionIsTraced) {
    const LogCapture log;
    OsslCalls calls;
    Lines traced_before;
    {
        const OsslCert cert(unit_cert("plain"));
        calls.before_x509_free = [&] { traced_before = log.lines(); };
    }
    EXPECT_EQ(calls.freed_x509s, 1);
    ASSERT_EQ(log.lines().size(), 2U);
    EXPECT_EQ(traced_before, Lines{log.lines().front()}) << "only the creation";
}

TEST_F(OsslCertTest, InvalidCertificateThrowsAndLeaksNothing) {
    const Bytes der = unit_cert("plain");
    const std::vector<Bytes> inputs{
        {},                                // empty
        {0},                               // too short
        {1, 2, 3, 4},                      // invalid
        {0x30, 0x84, 0xff, 0xff},          // incomplete length
        Bytes(der.begin(), der.end() - 1), // truncated
        Bytes(3 * 1024 * 1024, 0x30),      // large and invalid
    };
    for (const Bytes& input : inputs) {
        const LogCapture log;
        const OsslCalls calls;
        EXPECT_EQ(mask_queue(error_text([&] { OsslCert cert(input); })), not_decoded) << input.size();
        EXPECT_EQ(log.lines(), Lines());
        EXPECT_EQ(calls.decoded_x509s, 0);
        EXPECT_EQ(calls.freed_x509s, 0);
        EXPECT_EQ(::ERR_peek_error(), 0UL);
    }
}

TEST_F(OsslCertTest, FailureIsAnOsslErrorWithValueZero) {
    try {
        OsslCert cert(Bytes{});
        FAIL() << "nothing was thrown";
    } catch (const OsslError& error) {
        EXPECT_EQ(error.code().value, 0);
        EXPECT_NE(error.code().text, "");
    }
}

TEST_F(OsslCertTest, ErrorTextContainsEarlierEntriesOfTheErrorQueue) {
    ::ERR_new();
    ::ERR_set_debug("earlier.c", 7, "earlier");
    ::ERR_set_error(ERR_LIB_USER, 1, nullptr);
    const std::string text = error_text([] { OsslCert cert(Bytes{}); });
    EXPECT_NE(text.find("earlier.c:7"), std::string::npos) << text;
    EXPECT_EQ(mask_queue(text), not_decoded);
}

TEST_F(OsslCertTest, FailedEncodingThrowsTheResultOfTheEncoder) {
    const OsslCert cert(unit_cert("plain"));
    for (const int call : {1, 2}) {
        for (const int result : {-1, -7}) {
            OsslCalls calls;
            calls.encode_failing_call = call;
            calls.encode_failure = result;
            EXPECT_EQ(error_text([&] { cert.get_der_data(); }),
                      "cert_ossl:127 Kes::OsslCert::get_der_data(): error converting certificate to DER "
                      "format: rc=" +
                          std::to_string(result));
            EXPECT_EQ(calls.encode_has_buffer.size(), static_cast<std::size_t>(call));
        }
    }
}

TEST_F(OsslCertTest, FailedEncodingReportsTheErrorQueue) {
    const OsslCert cert(unit_cert("plain"));
    OsslCalls calls;
    calls.encode_failing_call = 1;
    ERR_raise(ERR_LIB_USER, 1);
    EXPECT_EQ(mask_queue(error_text([&] { cert.get_der_data(); })),
              "cert_ossl:127 Kes::OsslCert::get_der_data(): error converting certificate to DER format: "
              "rc=-1\n<queue>");
}

TEST_F(OsslCertTest, CertificateIsUsableAfterAFailure) {
    const Bytes der = unit_cert("plain");
    const OsslCert cert(der);
    {
        OsslCalls calls;
        calls.encode_failing_call = 1;
        EXPECT_THROW(cert.get_der_data(), OsslError);
    }
    EXPECT_EQ(cert.get_der_data(), der);
}

TEST_F(OsslCertTest, NamesThatCannotBePrintedThrow) {
    const OsslCert cert(unit_cert("plain"));
    OsslCalls calls;
    calls.name_print_result = 0;
    const std::string expected =
        "ossl_helper:123 Kes::OsslHelper::cert_name_to_str(): X509_NAME_print_ex() failed: rc=0";
    EXPECT_EQ(error_text([&] { cert.get_subject_name(); }), expected);
    EXPECT_EQ(error_text([&] { cert.get_issuer_name(); }), expected);
    EXPECT_EQ(error_text([&] { cert.to_string(); }), expected);
}

TEST_F(OsslCertTest, FileContainsTheEncoding) {
    const TempDir dir;
    const Bytes der = unit_cert("plain");
    const OsslCert cert(der);
    const LogCapture log;
    const std::string name = dir.file("plain.der");
    cert.write_der_file(name);
    EXPECT_EQ(read_file(name), std::string(der.begin(), der.end()));
    EXPECT_EQ(log.lines(), (Lines{"<debug> wrote data to: '" + name + "'"}));
}

TEST_F(OsslCertTest, FileInAMissingFolderThrows) {
    const TempDir dir;
    const std::string name = dir.file("missing/plain.der");
    const OsslCert cert(unit_cert("plain"));
    EXPECT_EQ(error_text([&] { cert.write_der_file(name); }),
              "helper:329 Kes::Helper::write_file(): error opening file: '" + name +
                  "': val=12 (open_failed)");
}

TEST_F(OsslCertTest, FailedEncodingDoesNotChangeTheFile) {
    const TempDir dir;
    const std::string name = dir.file("plain.der");
    const OsslCert cert(unit_cert("plain"));
    cert.write_der_file(name);
    const std::string before = read_file(name);
    OsslCalls calls;
    calls.encode_failing_call = 1;
    EXPECT_THROW(cert.write_der_file(name), OsslError);
    EXPECT_EQ(read_file(name), before);
}

/// Makes every log line throw during its lifetime: the disk is full and exceptions of the stream are enabled.
class FailingLog {
public:
    FailingLog() {
        Logger::instance().register_sink(dir_.file("log"), false);
        Logger::instance().log(Severity::fatal).exceptions(std::ios::badbit);
    }
    ~FailingLog() { Logger::destroy_instance(); }
    FailingLog(const FailingLog&) = delete;
    FailingLog& operator=(const FailingLog&) = delete;

private:
    TempDir dir_;
    test::FullDisk full_;
};

TEST_F(OsslCertTest, ConstructorThatFailsToLogFreesTheX509) {
    const Bytes der = unit_cert("plain");
    const OsslCalls calls;
    const FailingLog log;
    EXPECT_THROW(OsslCert cert(der), std::ios_base::failure);
    EXPECT_EQ(calls.decoded_x509s, 1);
    EXPECT_EQ(calls.freed_x509s, 1);
}

TEST_F(OsslCertTest, DestructorThatFailsToLogTerminatesTheProcess) {
    EXPECT_DEATH(
        {
            auto cert = std::make_unique<OsslCert>(unit_cert("plain"));
            const FailingLog log;
            cert.reset();
        },
        "");
}

} // namespace
} // namespace Kes
