#include "capi/pko_id_scanner_capi_store.h"

#include "support/capi_fixture.h"
#include "utils/error.h"

namespace Kes::test {
namespace {

class CapiStorePkoIdScannerTest : public CapiTest {
protected:
    std::string scan(std::unique_ptr<CertKeyUsageFilter> filter = nullptr, const char* store_name = "MY") {
        list.register_scanner(std::make_unique<CapiStorePkoIdScanner>(store_name, std::move(filter)));
        return error_text([&] { list.scan(Pin("not asked for")); });
    }

    static std::unique_ptr<CertKeyUsageFilter> digital_signature_if_present() {
        return std::make_unique<CertKeyUsageFilter>(FilterType::exact_none, 0x80, FilterType::all, "");
    }

    PkoIdList list;
};

constexpr const char* good = "no exception";
const Lines signer = store_records("AT, Test Makers, Signer");
const Lines exchanger = store_records("AT, Test Makers, Exchanger");
const Lines no_usage = store_records("No Usage");

TEST_F(CapiStorePkoIdScannerTest, EachCertificateYieldsThreeRecordsNamedAfterItsSimpleSubject) {
    store().certs.resize(1);
    EXPECT_EQ(scan(), good);
    const std::string name = "AT, Test Makers, Signer";
    EXPECT_EQ(
        records(list),
        (Lines{name + " [type=private_key, key_type=0, name=" + name + ", cluster_name=" + name + "]",
               name + " [type=public_key, key_type=0, name=" + name + ", cluster_name=" + name + "]",
               name + " [type=certificate, key_type=0, name=" + name + ", cluster_name=" + name + "]"}));
    for (const auto type : {PkoType::private_key, PkoType::public_key, PkoType::certificate})
        EXPECT_EQ(list.find_first(type)->key_usage, nullptr);
}

TEST_F(CapiStorePkoIdScannerTest, CertificatesRejectedByTheFilterAreCountedAndYieldNoRecords) {
    store().certs = {cert_der("exchange"), cert_der("sign"), cert_der("exchange"), cert_der("bare")};
    const LogCapture log(4);
    EXPECT_EQ(scan(digital_signature_if_present()), good);
    EXPECT_EQ(records(list), signer + no_usage);
    EXPECT_EQ(log.lines().back(), "<info> found 4 certs in store MY");
}

TEST_F(CapiStorePkoIdScannerTest, LogsEachStepOfAScan) {
    store().certs.resize(1);
    const LogCapture log;
    EXPECT_EQ(scan(digital_signature_if_present()), good);
    EXPECT_EQ(without_addresses(log.lines()),
              (Lines{"<trace> created PkoIdScanner object", "<trace> created CapiStorePkoIdScanner object",
                     "<info> scanning CAPI store key containers", "<trace> created CertStore [MY]",
                     "<trace> created WinCertStoreImp [MY]", "<trace> created WinCert [ctx=ADDRESS]",
                     "<info> subject='C=AT, O=Test Makers, CN=Signer'; issuer='C=AT, O=Test Makers, "
                     "CN=Signer'",
                     "<trace> created OsslCert [x509=ADDRESS]", "<trace> destroyed OsslCert [x509=ADDRESS]",
                     "<info> key usage:", "  _kuse_mask=\"digital_signature\" (0x80)",
                     "  _xkuse_mask=\"ssl_client\" (0x2)", "  _xkuse_nid_list=\"1.3.6.1.5.5.7.3.2\"",
                     "<info> key usage check returned: 1", "<info> extended key usage check returned: 1",
                     "<trace> destroyed WinCert [ctx=ADDRESS]", "<info> found 1 certs in store MY",
                     "<trace> destroyed WinCertStoreImp [MY]", "<trace> destroyed CertStore [MY]"}));
}

TEST_F(CapiStorePkoIdScannerTest, ScanWithoutAListFailsBeforeAnyCall) {
    CapiStorePkoIdScanner scanner("MY", nullptr);
    const LogCapture log(4);
    EXPECT_EQ(error_text([&] { scanner.scan(Pin()); }),
              "pko_id_scanner_capi_store:64 Kes::CapiStorePkoIdScanner::scan(): no PkoIdList registered: "
              "val=2 (null_pointer)");
    EXPECT_EQ(script().calls(), Lines());
    EXPECT_EQ(log.lines(), Lines{"<info> scanning CAPI store key containers"});
}

TEST_F(CapiStorePkoIdScannerTest, LogsItsDestructionAtTrace) {
    const LogCapture log;
    { const CapiStorePkoIdScanner scanner("MY", nullptr); }
    EXPECT_EQ(
        log.lines(),
        (Lines{"<trace> created PkoIdScanner object", "<trace> created CapiStorePkoIdScanner object",
               "<trace> destroyed CapiStorePkoIdScanner object", "<trace> destroyed PkoIdScanner object"}));
}

TEST_F(CapiStorePkoIdScannerTest, EmptyStoreLogsAWarningAndIsClosed) {
    store().certs.clear();
    const LogCapture log(0xffff & ~1U);
    EXPECT_EQ(scan(), good);
    EXPECT_TRUE(list.is_empty());
    EXPECT_EQ(log.lines(), (Lines{"<info> scanning CAPI store key containers",
                                  "<warn> no certificate found in store MY"}));
    EXPECT_EQ(script().calls().back(), "CertCloseStore(store:MY)");
}

TEST_F(CapiStorePkoIdScannerTest, MissingStoreThrows) {
    EXPECT_EQ(scan(nullptr, "NONE"),
              "certstore_win:61 Kes::WinCertStoreImp::WinCertStoreImp(): CertOpenStore() with name=NONE "
              "failed: val=2 [0x2] (unknown winerror)");
    EXPECT_TRUE(list.is_empty());
}

TEST_F(CapiStorePkoIdScannerTest, NullNameIsTreatedAsAnEmptyName) {
    EXPECT_EQ(scan(nullptr, nullptr),
              "certstore_win:61 Kes::WinCertStoreImp::WinCertStoreImp(): CertOpenStore() with name= failed: "
              "val=2 [0x2] (unknown winerror)");
}

TEST_F(CapiStorePkoIdScannerTest, EqualSubjectsYieldEqualNamesAndTheFirstIsFound) {
    store().certs = {cert_der("bare"), cert_der("bare"), cert_der("sign")};
    EXPECT_EQ(scan(), good);
    EXPECT_EQ(records(list), no_usage + no_usage + signer);
    EXPECT_EQ(list.find(PkoType::private_key, 0, "No Usage"), list.find_first(PkoType::private_key));
}

TEST_F(CapiStorePkoIdScannerTest, NamesAreUsedAsWindowsFormatsThem) {
    const struct {
        const char* cert;
        std::string name;
    } rows[] = {
        {"nameless", ""}, // is recorded, not skipped
        {"several_values", "AT, 7 + Both, Cards, Readers"},
        {"quotes", "\"Makers, Cards \"\"and\"\" Co\", \"a=b\""},
        {"utf8", "B\xfc"
                 "cher ?, J\xf6rg Wei\xdf"},
        {"bmp", "B\xfc"
                "cher ?, J\xf6rg Wei\xdf"},
        {"rare", "Ann, Rare"},
    };
    for (const auto& row : rows) {
        store().certs = {cert_der(row.cert)};
        EXPECT_EQ(scan(), good);
        EXPECT_EQ(records(list), store_records(row.name));
    }
}

TEST_F(CapiStorePkoIdScannerTest, CertificateThatOpensslCannotDecodeEndsTheScanAndTheStoreIsClosed) {
    store().certs.insert(store().certs.begin() + 1, Bytes{0x30, 0x01});
    const std::string error = scan();
    EXPECT_EQ(error.substr(0, error.find('\n')),
              "cert_ossl:55 Kes::OsslCert::OsslCert(): error converting certificate from DER to X509 format: "
              "rc=0");
    EXPECT_EQ(records(list), signer); // earlier records are kept
    EXPECT_EQ(script().calls().back(), "CertCloseStore(store:MY)");
    EXPECT_EQ(capi().unreleased_handles(), 0U);
}

TEST_F(CapiStorePkoIdScannerTest, AllHandlesAreReleasedAfterAScanOfAThousandCertificates) {
    store().certs.clear();
    Lines expected;
    for (int i = 0; i < 1000; ++i) {
        store().certs.push_back(numbered_cert_der(i));
        expected = std::move(expected) + store_records("Number " + std::to_string(10000 + i).substr(1));
    }
    const LogCapture log(4);
    EXPECT_EQ(scan(), good);
    EXPECT_EQ(records(list), expected);
    EXPECT_EQ(log.lines().back(), "<info> found 1000 certs in store MY");
    EXPECT_EQ(capi().unreleased_handles(), 0U);
}

/// The calls for one certificate, including the step to the next one.
Lines calls_for(const std::string& cert) {
    return {"CertNameToStrA(" + cert + " issuer, 3, size)",
            "CertNameToStrA(" + cert + " issuer, 3, read)",
            "CertNameToStrA(" + cert + " subject, 3, size)",
            "CertNameToStrA(" + cert + " subject, 3, read)",
            "CertNameToStrA(" + cert + " subject, 1, size)",
            "CertNameToStrA(" + cert + " subject, 1, read)",
            "CertDuplicateCertificateContext(" + cert + ")",
            "CertEnumCertificatesInStore(store:MY, " + cert + ")",
            "CertFreeCertificateContext(" + cert + ")"};
}

const Lines open_calls{"CertOpenStore(MY)", "CertEnumCertificatesInStore(store:MY, null)"};
const Lines close_calls{"CertCloseStore(store:MY)"};

TEST_F(CapiStorePkoIdScannerTest, ScanMakesExactlyTheExpectedCalls) {
    store().certs.resize(2);
    EXPECT_EQ(scan(), good);
    EXPECT_EQ(script().calls(), open_calls + calls_for("cert:MY/0") + calls_for("cert:MY/1") + close_calls);
}

/// Row n contains the effects when call n fails in a store with two certificates. The functions that
/// duplicate and free a certificate context cannot fail and are not counted.
TEST_F(CapiStorePkoIdScannerTest, EachFailedCallHasTheSameOutcomeForEveryCode) {
    const Lines one = calls_for("cert:MY/0");
    const Lines two = calls_for("cert:MY/1");
    const auto from = [](const Lines& calls, std::ptrdiff_t first) {
        return Lines(calls.begin() + first, calls.end());
    };
    const std::string open_error =
        "certstore_win:61 Kes::WinCertStoreImp::WinCertStoreImp(): CertOpenStore() with name=MY failed: ";
    const std::string issuer = "issuer='C=AT, O=Test Makers, CN=Signer'";
    const std::string subject = "subject='C=AT, O=Test Makers, CN=Signer'; ";
    const Lines nameless = store_records("");
    const Lines both = signer + exchanger;
    const std::string found_1 = "<info> found 1 certs in store MY";
    const std::string found_2 = "<info> found 2 certs in store MY";
    const struct {
        std::string error;  // without the code
        std::string logged; // a line that shows the outcome
        Lines rest;
        Lines kept;
    } rows[] = {
        {open_error, "<info> scanning CAPI store key containers", {}, {}},
        {"", "<warn> no certificate found in store MY", close_calls, {}},
        {"", "<info> " + subject + "issuer=''", from(one, 2) + two + close_calls, both},
        {"", "<info> " + subject + "issuer=''", from(one, 2) + two + close_calls, both},
        {"", "<info> subject=''; " + issuer, from(one, 4) + two + close_calls, both},
        {"", "<info> subject=''; " + issuer, from(one, 4) + two + close_calls, both},
        {"", found_2, from(one, 6) + two + close_calls, nameless + exchanger},
        {"", found_2, from(one, 6) + two + close_calls, nameless + exchanger},
        {"", found_1, from(one, 8) + close_calls, signer},
    };
    store().certs.resize(2);
    const auto expect = [&](std::size_t n, const auto& row, DWORD code) {
        SCOPED_TRACE(std::to_string(n) + " fails with " + std::to_string(code));
        restart_script();
        script().fail_step(n, win_failure(code));
        const LogCapture log(0xffff & ~1U);
        EXPECT_EQ(scan(), row.error.empty() ? good : row.error + win_code(code));
        EXPECT_EQ(script().calls_after_step(n), row.rest);
        EXPECT_EQ(records(list), row.kept);
        EXPECT_THAT(log.lines(), testing::Contains(row.logged));
        EXPECT_EQ(capi().unreleased_handles(), 0U);
        EXPECT_EQ(script().violations(), Lines());
    };
    for (const DWORD code : all_codes)
        for (std::size_t n = 1; n <= std::size(rows); ++n)
            expect(n, rows[n - 1], code);
}

TEST_F(CapiStorePkoIdScannerTest, FailedCloseOfTheStoreIsLoggedAndTheRecordsAreKept) {
    for (const DWORD code : all_codes) {
        script().fail_function("CertCloseStore", win_failure(code));
        const LogCapture log(8 | 16);
        EXPECT_EQ(scan(), good);
        EXPECT_EQ(log.lines(), Lines{"<error> CertCloseStore() failed: " + win_code(code)});
        EXPECT_EQ(records(list), signer + exchanger + no_usage);
    }
}

} // namespace
} // namespace Kes::test
