#include "utils/cert_win.h"

#include <sstream>

#include "support/capi_fixture.h"
#include "support/timeline.h"
#include "utils/error.h"

namespace Kes::test {
namespace {

/// Tests certificates of an open store.
class WinCertTest : public CapiTest {
protected:
    ~WinCertTest() override { capi().end_store(handle); }

    const CERT_CONTEXT* context(const std::string& name) {
        store().certs = {cert_der(name)};
        return capi().add_certificate(handle, 0);
    }

    const HCERTSTORE handle = capi().add(ScriptedCapi::Store{"store:MY", &store()});
    LogCapture log;
};

TEST_F(WinCertTest, NullContextIsABadArgument) {
    for (const bool owns : {false, true})
        EXPECT_EQ(error_text([&] { const WinCert cert(nullptr, owns); }),
                  "cert_win:41 Kes::WinCert::WinCert(): cert_ctx is a null pointer: val=3 (bad_argument)");
    EXPECT_EQ(log.lines(), Lines());
    EXPECT_EQ(script().calls(), Lines());
}

TEST_F(WinCertTest, LogsCreationAndDestructionWithTheContextAddress) {
    const CERT_CONTEXT* ctx = context("sign");
    { const WinCert cert(ctx, true); }
    EXPECT_EQ(log.lines(), (Lines{"<trace> created WinCert [ctx=" + text_of(PointerText{ctx}) + "]",
                                  "<trace> destroyed WinCert [ctx=" + text_of(PointerText{ctx}) + "]"}));
}

TEST_F(WinCertTest, ContextIsFreedBeforeTheDestructionIsTraced) {
    const CERT_CONTEXT* ctx = context("sign");
    auto cert = std::make_unique<WinCert>(ctx, true);
    Timeline timeline(log);
    cert.reset();
    EXPECT_EQ(without_addresses(timeline.take()),
              (Lines{"CertFreeCertificateContext(cert:MY/0)", "<trace> destroyed WinCert [ctx=ADDRESS]"}));
}

TEST_F(WinCertTest, FreesTheContextOnlyIfItOwnsIt) {
    const CERT_CONTEXT* ctx = context("sign");
    {
        const WinCert cert(ctx, false);
        EXPECT_EQ(cert.context(), ctx);
    }
    EXPECT_EQ(script().calls(), Lines());
    { const WinCert cert(ctx, true); }
    EXPECT_EQ(script().calls(), Lines{"CertFreeCertificateContext(cert:MY/0)"});
}

TEST_F(WinCertTest, ReturnsTheEncodingByteForByte) {
    const WinCert cert(context("sign"), true);
    EXPECT_EQ(cert.get_der_data(), cert_der("sign"));
}

TEST_F(WinCertTest, EmptyEncodingIsReturnedAsNoBytes) {
    CERT_INFO info{};
    const CERT_CONTEXT empty{X509_ASN_ENCODING, nullptr, 0, &info, nullptr};
    EXPECT_EQ(WinCert(&empty, false).get_der_data(), Bytes());
}

TEST_F(WinCertTest, WritesTheEncodingToAFile) {
    const TempDir dir;
    const WinCert cert(context("sign"), true);
    cert.write_der_file(dir.file("cert.der"));
    const std::string written = read_file(dir.file("cert.der"));
    EXPECT_EQ(Bytes(written.begin(), written.end()), cert_der("sign"));
    EXPECT_EQ(log.lines().back(), "<debug> wrote data to: '" + dir.file("cert.der") + "'");
    EXPECT_EQ(error_text([&] { cert.write_der_file(dir.file("none/cert.der")); }),
              "helper:329 Kes::Helper::write_file(): error opening file: '" + dir.file("none/cert.der") +
                  "': val=12 (open_failed)");
}

TEST_F(WinCertTest, FullAndSimpleNamesAreFormattedByWindows) {
    const struct {
        const char* cert;
        const char* full;
        const char* simple;
    } rows[] = {
        {"sign", "C=AT, O=Test Makers, CN=Signer", "AT, Test Makers, Signer"},
        {"nameless", "", ""},
        {"several_values", "C=AT, SERIALNUMBER=7 + CN=Both, OU=Cards, OU=Readers",
         "AT, 7 + Both, Cards, Readers"},
        {"quotes", "O=\"Makers, Cards \"\"and\"\" Co\", CN=\"a=b\"",
         "\"Makers, Cards \"\"and\"\" Co\", \"a=b\""},
        {"utf8",
         "O=B\xfc"
         "cher ?, CN=J\xf6rg Wei\xdf",
         "B\xfc"
         "cher ?, J\xf6rg Wei\xdf"},
        {"bmp",
         "O=B\xfc"
         "cher ?, CN=J\xf6rg Wei\xdf",
         "B\xfc"
         "cher ?, J\xf6rg Wei\xdf"},
        {"rare", "OID.2.5.4.42=Ann, CN=Rare", "Ann, Rare"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.cert);
        const WinCert cert(context(row.cert), true);
        EXPECT_EQ(cert.get_subject_name(), row.full);
        EXPECT_EQ(cert.get_issuer_name(), row.full);
        EXPECT_EQ(cert.get_subject_name_simple(), row.simple);
        EXPECT_EQ(cert.get_issuer_name_simple(), row.simple);
    }
}

TEST_F(WinCertTest, EachNameIsRequestedInItsOwnFormat) {
    const WinCert cert(context("sign"), true);
    script().take_calls();
    cert.get_subject_name();
    cert.get_issuer_name();
    cert.get_subject_name_simple();
    cert.get_issuer_name_simple();
    EXPECT_EQ(
        script().calls(),
        (Lines{"CertNameToStrA(cert:MY/0 subject, 3, size)", "CertNameToStrA(cert:MY/0 subject, 3, read)",
               "CertNameToStrA(cert:MY/0 issuer, 3, size)", "CertNameToStrA(cert:MY/0 issuer, 3, read)",
               "CertNameToStrA(cert:MY/0 subject, 1, size)", "CertNameToStrA(cert:MY/0 subject, 1, read)",
               "CertNameToStrA(cert:MY/0 issuer, 1, size)", "CertNameToStrA(cert:MY/0 issuer, 1, read)"}));
}

TEST_F(WinCertTest, NameOfLengthZeroIsNotRead) {
    const WinCert cert(context("sign"), true);
    for (const DWORD size : {0U, 1U}) {
        capi().odd_answers["CertNameToStrA"] = {.size = size};
        EXPECT_EQ(cert.get_subject_name(), "");
        EXPECT_EQ(script().calls().back(), "CertNameToStrA(cert:MY/0 subject, 3, size)");
    }
}

TEST_F(WinCertTest, NameThatCannotBeFormattedIsEmpty) {
    const WinCert cert(context("sign"), true);
    for (const std::size_t step : {1U, 2U}) {
        for (const DWORD code : all_codes) {
            restart_script();
            script().fail_step(step, win_failure(code));
            EXPECT_EQ(cert.get_subject_name(), "");
            EXPECT_EQ(script().steps(), step);
        }
    }
}

TEST_F(WinCertTest, NameEndsAtTheFirstNulOrAtTheEndOfTheBuffer) {
    const WinCert cert(context("sign"), true);
    capi().odd_name = std::string("CN=a\0, CN=b", 11);
    EXPECT_EQ(cert.get_subject_name(), "CN=a");
    capi().odd_answers["CertNameToStrA"] = {.size = 6};
    capi().odd_name = "CN=no end";
    EXPECT_EQ(cert.get_subject_name(), "CN=no ");
}

TEST_F(WinCertTest, NameThatGrowsBeforeTheReadIsTruncatedAndAShorterOneIsAccepted) {
    const WinCert cert(context("sign"), true);
    capi().odd_answers["CertNameToStrA"] = {.size = 5};
    EXPECT_EQ(cert.get_subject_name(), "C=AT");
    capi().odd_answers["CertNameToStrA"] = {.size = 1000};
    EXPECT_EQ(cert.get_subject_name(), "C=AT, O=Test Makers, CN=Signer");
}

TEST_F(WinCertTest, TextContainsTheFullNamesUnescaped) {
    const WinCert cert(context("several_values"), true);
    const std::string name = "C=AT, SERIALNUMBER=7 + CN=Both, OU=Cards, OU=Readers";
    script().take_calls();
    EXPECT_EQ(cert.to_string(), "subject='" + name + "'; issuer='" + name + "'");
    EXPECT_EQ(script().calls().front(), "CertNameToStrA(cert:MY/0 issuer, 3, size)");
    std::ostringstream out;
    cert.print(out);
    EXPECT_EQ(out.str(), cert.to_string() + "\n");
}

} // namespace
} // namespace Kes::test
