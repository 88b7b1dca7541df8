#include "pkcs11/pko_id_scanner_pkcs11_libp11.h"

#include "support/core_fixture.h"
#include "utils/error.h"

namespace Kes::test {
namespace {

constexpr const char* client_oids = "1.3.6.1.5.5.7.3.2";

class Pkcs11Libp11PkoIdScannerTest : public CoreTest {
protected:
    /// Reads the card and scans it into a list. The calls of libp11 are in "calls", the log lines in "lines".
    std::string scan(std::unique_ptr<CertKeyUsageFilter> filter = nullptr, const char* pin = "1234") {
        Libp11Init context("module.so");
        context.read_scard();
        script().take_calls();
        PkoIdList list;
        list.register_scanner(std::make_unique<Pkcs11Libp11PkoIdScanner>(&context, std::move(filter)));
        const std::size_t before = log.lines().size();
        list.scan(Pin(pin));
        lines = log.lines();
        lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(before));
        calls = script().take_calls();
        return text_of(list);
    }

    static std::unique_ptr<CertKeyUsageFilter> filter(FilterType type, std::uint32_t bits,
                                                      FilterType ext_type = FilterType::all,
                                                      const std::string& oid = "") {
        return std::make_unique<CertKeyUsageFilter>(type, bits, ext_type, oid);
    }

    static std::string line(const std::string& type, const std::string& word, const std::string& id,
                            const std::string& display = "Token 1: Auth key") {
        return display + " [type=" + type + ", key_type=0, name=pkcs11:token=Token 1;id=" + id +
               ";type=" + word + ", cluster_name=" + id + "]\n";
    }

    LogCapture log;
    Lines lines;
    Lines calls;
    const std::string cert = line("certificate", "cert", "%01%ab");
    const std::string key = line("private_key", "private", "%01%ab");
    const std::string public_key = line("public_key", "public", "%01%ab");
};

TEST_F(Pkcs11Libp11PkoIdScannerTest, ListsCertificatesThenPrivateThenPublicKeys) {
    EXPECT_EQ(scan(), cert + key + public_key);
    EXPECT_EQ(calls, (Lines{"PKCS11_is_logged_in(slot1.1, user)", "PKCS11_login(slot1.1, user, right pin)",
                            "PKCS11_enumerate_certs(token1.1)", "PKCS11_enumerate_keys(token1.1)",
                            "PKCS11_enumerate_public_keys(token1.1)"}));
}

TEST_F(Pkcs11Libp11PkoIdScannerTest, LogsEachStepInFull) {
    scan();
    const auto without_newline = [](std::string text) { return text.substr(0, text.size() - 1); };
    EXPECT_EQ(lines,
              (Lines{"<info> started scanning of PKCS#11 objects", "<info> pin required - need login",
                     "<info> logged-in successfully", "<info> handling " + without_newline(cert),
                     "<info> handling " + without_newline(key),
                     "<info>   corresponding cert:", without_newline(cert),
                     "<info> key usage:", "  _kuse_mask=\"key_encipherment|digital_signature\" (0xa0)",
                     "  _xkuse_mask=\"ssl_client|smime\" (0x6)",
                     "  _xkuse_nid_list=\"1.3.6.1.5.5.7.3.2,1.3.6.1.5.5.7.3.4\"",
                     "<info> key usage check returned: 1", "<info> extended key usage check returned: 1",
                     "<info> handling " + without_newline(public_key),
                     "<info> finished scanning of PKCS#11 objects"}));
}

TEST_F(Pkcs11Libp11PkoIdScannerTest, LogsItsCreationAndDestruction) {
    { const Pkcs11Libp11PkoIdScanner scanner(nullptr, nullptr); }
    EXPECT_EQ(log.lines(),
              (Lines{"<trace> created PkoIdScanner object", "<trace> created Pkcs11Libp11PkoIdScanner object",
                     "<trace> destroyed Pkcs11Libp11PkoIdScanner object",
                     "<trace> destroyed PkoIdScanner object"}));
}

TEST_F(Pkcs11Libp11PkoIdScannerTest, ScanWithoutAListFailsBeforeAnyCall) {
    Libp11Init context("module.so");
    script().take_calls();
    Pkcs11Libp11PkoIdScanner scanner(&context, nullptr);
    EXPECT_EQ(
        error_text([&] { scanner.scan(Pin("1234")); }),
        "pko_id_scanner_pkcs11_libp11:57 Kes::Pkcs11Libp11PkoIdScanner::scan(): no PkoIdList registered: "
        "val=2 (null_pointer)");
    EXPECT_EQ(script().calls(), Lines());
    EXPECT_EQ(log.lines().back(), "<info> started scanning of PKCS#11 objects");
}

TEST_F(Pkcs11Libp11PkoIdScannerTest, FailedEnumerationIsNamedAndKeepsTheEarlierRecords) {
    const struct {
        const char* function;
        const char* line;
        std::size_t records;
    } rows[] = {{"PKCS11_enumerate_certs", "71", 0},
                {"PKCS11_enumerate_keys", "78", 1},
                {"PKCS11_enumerate_public_keys", "85", 2}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.function);
        Libp11Init context("module.so");
        context.read_scard();
        PkoIdList list;
        list.register_scanner(std::make_unique<Pkcs11Libp11PkoIdScanner>(&context, nullptr));
        script().fail_function(row.function, {.rc = -3});
        EXPECT_EQ(error_text([&] { list.scan(Pin("1234")); }),
                  std::string("pko_id_scanner_pkcs11_libp11:") + row.line +
                      " Kes::Pkcs11Libp11PkoIdScanner::scan(): " + row.function + "() failed: rc=-3" +
                      raised_by(row.function));
        EXPECT_EQ(split_lines(text_of(list)).size(), row.records);
        script().clear_failures();
        list.scan(Pin("1234"));
        EXPECT_EQ(text_of(list), cert + key + public_key) << "the next scan starts with an empty list";
    }
}

TEST_F(Pkcs11Libp11PkoIdScannerTest, TokenIsNotEnumeratedAfterAFailedLogin) {
    EXPECT_EQ(error_text([&] { scan(nullptr, ""); }),
              "libp11_helper:185 Kes::Libp11Init::authenticate(): no PIN specified: val=11 (empty)");
    EXPECT_THAT(script().calls(), testing::Not(testing::Contains(testing::HasSubstr("PKCS11_enumerate"))));
}

TEST_F(Pkcs11Libp11PkoIdScannerTest, RepeatedScanReturnsTheSameRecords) {
    Libp11Init context("module.so");
    context.read_scard();
    PkoIdList list;
    list.register_scanner(std::make_unique<Pkcs11Libp11PkoIdScanner>(&context, nullptr));
    list.scan(Pin("1234"));
    list.scan(Pin("1234"));
    EXPECT_EQ(text_of(list), cert + key + public_key);
}

TEST_F(Pkcs11Libp11PkoIdScannerTest, EmptyTokenYieldsAnEmptyList) {
    token().certs.clear();
    token().private_keys.clear();
    token().public_keys.clear();
    EXPECT_EQ(scan(), "");
    EXPECT_EQ(lines.back(), "<info> finished scanning of PKCS#11 objects");
}

TEST_F(Pkcs11Libp11PkoIdScannerTest, KeyWithoutAMatchingCertificateIsSkippedWithAWarning) {
    token().private_keys.push_back({"Lone", {0x01}});
    EXPECT_EQ(scan(), cert + key + public_key);
    const std::string lone = "Token 1: Lone [type=private_key, key_type=0, "
                             "name=pkcs11:token=Token 1;id=%01;type=private, cluster_name=%01]";
    EXPECT_THAT(
        lines, testing::IsSupersetOf({"<info> handling " + lone,
                                      "<warn> corresponding cert not found; skipping private key: " + lone}));
}

TEST_F(Pkcs11Libp11PkoIdScannerTest, FilterAppliesToKeysAndNeverToCertificates) {
    const auto all = FilterType::all;
    const auto exact = FilterType::exact;
    const auto exact_none = FilterType::exact_none;
    const struct {
        X509* x509;
        FilterType type;
        std::uint32_t bits;
        FilterType ext_type;
        const char* oid;
        bool is_listed;
    } rows[] = {
        {data().client.get(), exact, 0x80, all, "", true},
        {data().client.get(), exact, 0xa0, exact, client_oids, true},
        {data().client.get(), exact, 0, all, "", false},
        {data().client.get(), all, 0, exact, "1.3.6.1.5.5.7.3.4", true},
        {data().client.get(), all, 0, exact, "1.3.6.1.5.5.7.3", false},
        {data().encipher.get(), exact, 0x80, all, "", false},
        {data().encipher.get(), all, 0, exact, client_oids, false},
        {data().encipher.get(), all, 0, exact_none, client_oids, true},
        {data().bare.get(), exact, 0x80, all, "", false},
        {data().bare.get(), exact_none, 0x80, exact_none, client_oids, true},
        {nullptr, all, 0, all, "", true},
        {nullptr, exact_none, 0x80, exact_none, client_oids, true},
        {nullptr, exact, 0x80, all, "", false},
        {nullptr, all, 0, exact, client_oids, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        token().certs[0].x509 = row.x509;
        libp11().is_logged_in = false;
        EXPECT_EQ(scan(filter(row.type, row.bits, row.ext_type, row.oid)),
                  cert + (row.is_listed ? key : "") + public_key);
    }
}

TEST_F(Pkcs11Libp11PkoIdScannerTest, KeyThatFailsTheFilterIsSkippedWithoutAFurtherLogLine) {
    token().certs[0].x509 = data().encipher.get();
    scan(filter(FilterType::exact, 0x80));
    const auto checked = std::find(lines.begin(), lines.end(), "<info> key usage check returned: 0");
    ASSERT_NE(checked, lines.end());
    EXPECT_EQ(*std::next(checked), "<info> handling " + public_key.substr(0, public_key.size() - 1));
}

TEST_F(Pkcs11Libp11PkoIdScannerTest, UnreadableCertificateGetsAnEmptyKeyUsage) {
    token().certs[0].x509 = nullptr;
    EXPECT_EQ(scan(), cert + key + public_key);
    const auto warning = std::find(lines.begin(), lines.end(),
                                   "<warn> cert_key_usage:49 Kes::CertKeyUsage::CertKeyUsage(): x509 is a "
                                   "null pointer: val=3 (bad_argument)");
    ASSERT_NE(warning, lines.end());
    EXPECT_EQ(*std::next(warning), "<warn> creating dummy CertKeyUsage()");
    EXPECT_THAT(lines, testing::IsSupersetOf({"<info> key usage:", "  _kuse_mask=\"none\" (0x0)",
                                              "  _xkuse_mask=\"none\" (0x0)", "  _xkuse_nid_list=\"\""}));
}

/// A list whose records have no key usage.
class ListWithoutKeyUsage final : public PkoIdList {
public:
    std::unique_ptr<PkoId> create_pko_id(PkoType type, std::uint32_t key_type, const std::string& name,
                                         const std::string& cluster_name, const std::string& display_name,
                                         std::unique_ptr<const CertKeyUsage>) override {
        return PkoIdList::create_pko_id(type, key_type, name, cluster_name, display_name, nullptr);
    }
};

TEST_F(Pkcs11Libp11PkoIdScannerTest, KeyWhoseCertificateHasNoKeyUsageIsSkippedWithAWarning) {
    Libp11Init context("module.so");
    context.read_scard();
    ListWithoutKeyUsage list;
    list.register_scanner(std::make_unique<Pkcs11Libp11PkoIdScanner>(&context, nullptr));
    list.scan(Pin("1234"));
    EXPECT_EQ(text_of(list), cert + public_key);
    EXPECT_THAT(log.lines(), testing::Contains("<warn> key usage for cert not found; skipping private key: " +
                                               key.substr(0, key.size() - 1)));
}

TEST_F(Pkcs11Libp11PkoIdScannerTest, KeyIsPairedWithTheFirstOfTwoCertificatesWithItsId) {
    token().certs = {object(data().encipher.get()), object(data().client.get())};
    EXPECT_EQ(scan(filter(FilterType::exact, 0x80)), cert + cert + public_key);
    token().certs = {object(data().client.get()), object(data().encipher.get())};
    libp11().is_logged_in = false;
    EXPECT_EQ(scan(filter(FilterType::exact, 0x80)), cert + cert + key + public_key);
}

TEST_F(Pkcs11Libp11PkoIdScannerTest, EmptyIdIsWrittenAsAPercentSign) {
    token().certs[0].id.clear();
    token().private_keys[0].id.clear();
    token().public_keys.clear();
    EXPECT_EQ(scan(), line("certificate", "cert", "%") + line("private_key", "private", "%"));
}

TEST_F(Pkcs11Libp11PkoIdScannerTest, IdBytesAreWrittenInLowerCaseHexadecimal) {
    token().certs.clear();
    token().private_keys.clear();
    token().public_keys = {{"Long", {0x00, 0x0a, 0xff, 0x25, 0x80}}};
    EXPECT_EQ(scan(), line("public_key", "public", "%00%0a%ff%25%80", "Token 1: Long"));
}

TEST_F(Pkcs11Libp11PkoIdScannerTest, MissingLabelsAreEmptyTexts) {
    token().label.reset();
    token().certs.clear();
    token().private_keys.clear();
    token().public_keys = {{std::nullopt, {0x01}}};
    EXPECT_EQ(scan(), ":  [type=public_key, key_type=0, name=pkcs11:token=;id=%01;type=public, "
                      "cluster_name=%01]\n");
}

TEST_F(Pkcs11Libp11PkoIdScannerTest, LabelsAreNotEscaped) {
    token().label = "T\xc3\xb6ken;50%\xff";
    token().certs.clear();
    token().private_keys.clear();
    token().public_keys = {{"a b\xfe", {0x01}}};
    EXPECT_EQ(scan(), "T\xc3\xb6ken;50%\xff: a b\xfe [type=public_key, key_type=0, "
                      "name=pkcs11:token=T\xc3\xb6ken;50%\xff;id=%01;type=public, cluster_name=%01]\n");
}

TEST_F(Pkcs11Libp11PkoIdScannerTest, ThousandKeysNeedOnlyThreeEnumerationsAndKeepTheirOrder) {
    token().certs.clear();
    token().private_keys.clear();
    token().public_keys.clear();
    for (unsigned int i = 0; i < 1000; ++i) {
        const std::vector<unsigned char> id{static_cast<unsigned char>(i >> 8U),
                                            static_cast<unsigned char>(i & 0xffU)};
        token().certs.push_back({"Cert", id, data().client.get()});
        token().private_keys.insert(token().private_keys.begin(), {"Key", id});
    }
    const auto records = split_lines(scan());
    ASSERT_EQ(records.size(), 2000U);
    EXPECT_THAT(records[1000], testing::HasSubstr("id=%03%e7;type=private"));
    EXPECT_THAT(records[1999], testing::HasSubstr("id=%00%00;type=private"));
    EXPECT_EQ(calls.size(), 5U);
}

TEST_F(Pkcs11Libp11PkoIdScannerTest, UninitialisedTokenIsRejectedBeforeTheLogin) {
    token().is_initialized = false;
    Libp11Init context("module.so");
    context.read_scard();
    script().take_calls();
    PkoIdList list;
    list.register_scanner(std::make_unique<Pkcs11Libp11PkoIdScanner>(&context, nullptr));
    EXPECT_EQ(error_text([&] { list.scan(Pin("1234")); }),
              "libp11_helper:209 Kes::Libp11Init::get_token(): token is not initialized: val=10 "
              "(not_initialized)");
    EXPECT_EQ(script().calls(), Lines());
    EXPECT_EQ(log.lines().back(), "<info> started scanning of PKCS#11 objects");
}

} // namespace
} // namespace Kes::test
