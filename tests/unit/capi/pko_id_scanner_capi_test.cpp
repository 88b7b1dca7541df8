#include "capi/pko_id_scanner_capi.h"

#include <new>
#include <openssl/err.h>

#include "support/capi_fixture.h"
#include "utils/error.h"

namespace Kes::test {
namespace {

class CapiPkoIdScannerTest : public CapiTest {
protected:
    /// Scans the provider into the list. @return the error text
    std::string scan(std::unique_ptr<CertKeyUsageFilter> filter = nullptr, const char* provider_name = csp) {
        list.register_scanner(std::make_unique<CapiPkoIdScanner>(provider_name, std::move(filter)));
        return error_text([&] { list.scan(Pin("not asked for")); });
    }

    static std::unique_ptr<CertKeyUsageFilter> digital_signature_filter() {
        return std::make_unique<CertKeyUsageFilter>(FilterType::exact, 0x80, FilterType::all, "");
    }

    PkoIdList list;
};

constexpr const char* good = "no exception";

TEST_F(CapiPkoIdScannerTest, EachKeyYieldsThreeRecordsNamedAfterTheContainer) {
    EXPECT_EQ(scan(), good);
    EXPECT_EQ(records(list),
              (Lines{"c1 (KEYEXCHANGE) [type=private_key, key_type=1, name=c1, cluster_name=c1]",
                     "c1 (KEYEXCHANGE) [type=public_key, key_type=1, name=c1, cluster_name=c1]",
                     "c1 (KEYEXCHANGE) [type=certificate, key_type=1, name=c1, cluster_name=c1]",
                     "c1 (SIGNATURE) [type=private_key, key_type=2, name=c1, cluster_name=c1]",
                     "c1 (SIGNATURE) [type=public_key, key_type=2, name=c1, cluster_name=c1]",
                     "c1 (SIGNATURE) [type=certificate, key_type=2, name=c1, cluster_name=c1]",
                     "c2 (SIGNATURE) [type=private_key, key_type=2, name=c2, cluster_name=c2]",
                     "c2 (SIGNATURE) [type=public_key, key_type=2, name=c2, cluster_name=c2]",
                     "c2 (SIGNATURE) [type=certificate, key_type=2, name=c2, cluster_name=c2]"}));
    for (const auto type : {PkoType::private_key, PkoType::public_key, PkoType::certificate})
        EXPECT_EQ(list.find_first(type)->key_usage, nullptr);
}

TEST_F(CapiPkoIdScannerTest, LogsEachStepOfAScan) {
    container(0).keys.erase(AT_KEYEXCHANGE);
    provider().containers.pop_back();
    const LogCapture log;
    EXPECT_EQ(scan(digital_signature_filter()), good);
    EXPECT_EQ(
        without_addresses(log.lines()),
        (Lines{
            "<trace> created PkoIdScanner object",
            "<trace> created CapiPkoIdScanner object",
            "<info> scanning CAPI key containers",
            "<trace> created CapiProvParamReader object",
            "<trace> destroyed CapiProvParamReader object",
            "<info> capi initialized (provider=Test CSP, key_container=default (default), flags=0xf0000000)",
            "<trace> created CapiProvParamReader object",
            "<trace> destroyed CapiProvParamReader object",
            "<info> capi keyspec_mask=3",
            "<trace> created CapiProvParamReader object",
            "<trace> destroyed CapiProvParamReader object",
            "<trace> created CapiProvParamReader object",
            "<trace> destroyed CapiProvParamReader object",
            "<info> capi initialized (provider=Test CSP, key_container=c1, flags=0x0)",
            "<info> no user key with key_type=KEYEXCHANGE",
            "<info> fetched user key with key_type=SIGNATURE",
            "<trace> created CapiKeyParamReader object",
            "<trace> destroyed CapiKeyParamReader object",
            "<trace> created OsslCert [x509=ADDRESS]",
            "<trace> destroyed OsslCert [x509=ADDRESS]",
            "<info> key usage:",
            "  _kuse_mask=\"digital_signature\" (0x80)",
            "  _xkuse_mask=\"ssl_client\" (0x2)",
            "  _xkuse_nid_list=\"1.3.6.1.5.5.7.3.2\"",
            "<info> key usage check returned: 1",
            "<info> extended key usage check returned: 1",
            "<info> capi destroyed",
            "<info> capi destroyed"}));
}

TEST_F(CapiPkoIdScannerTest, ScanWithoutAListFailsBeforeAnyCall) {
    CapiPkoIdScanner scanner(csp, nullptr);
    const LogCapture log(4);
    EXPECT_EQ(error_text([&] { scanner.scan(Pin()); }),
              "pko_id_scanner_capi:59 Kes::CapiPkoIdScanner::scan(): no PkoIdList registered: val=2 "
              "(null_pointer)");
    EXPECT_EQ(script().calls(), Lines());
    EXPECT_EQ(log.lines(), Lines{"<info> scanning CAPI key containers"});
}

TEST_F(CapiPkoIdScannerTest, LogsItsDestructionAtTrace) {
    const LogCapture log;
    { const CapiPkoIdScanner scanner(csp, nullptr); }
    EXPECT_EQ(log.lines(),
              (Lines{"<trace> created PkoIdScanner object", "<trace> created CapiPkoIdScanner object",
                     "<trace> destroyed CapiPkoIdScanner object", "<trace> destroyed PkoIdScanner object"}));
}

TEST_F(CapiPkoIdScannerTest, KeysRejectedByTheFilterYieldNoRecordsAndTheScanContinues) {
    EXPECT_EQ(scan(digital_signature_filter()), good);
    EXPECT_EQ(records(list), capi_records("c1", AT_SIGNATURE) + capi_records("c2", AT_SIGNATURE));
}

TEST_F(CapiPkoIdScannerTest, MaskZeroScansForBothKeysAfterOneWarning) {
    provider().key_specs = 0;
    const LogCapture log(8);
    EXPECT_EQ(scan(), good);
    EXPECT_EQ(log.lines(), Lines{"<warn> keyspec mask is 0 -> updating it to 3"});
    EXPECT_EQ(records(list), capi_records("c1", AT_KEYEXCHANGE) + capi_records("c1", AT_SIGNATURE) +
                                 capi_records("c2", AT_SIGNATURE));
}

TEST_F(CapiPkoIdScannerTest, OnlyTheKeysInTheMaskAreFetched) {
    container(0).keys[0x80000000] = container(0).keys[AT_KEYEXCHANGE];
    const struct {
        DWORD mask;
        const char* logged;
        Lines found;
    } rows[] = {
        {1, "1", capi_records("c1", 1)},
        {2, "2", capi_records("c1", 2) + capi_records("c2", 2)},
        {3, "3", capi_records("c1", 1) + capi_records("c1", 2) + capi_records("c2", 2)},
        {0x80000001, "2147483649", capi_records("c1", 1) + capi_records("c1", 0x80000000)},
    };
    for (const auto& row : rows) {
        const LogCapture log(4);
        provider().key_specs = row.mask;
        EXPECT_EQ(scan(), good);
        EXPECT_EQ(records(list), row.found);
        EXPECT_THAT(log.lines(), testing::Contains(std::string("<info> capi keyspec_mask=") + row.logged));
    }
    EXPECT_EQ(list.find(PkoType::private_key, 0x80000000, "c1")->display_name,
              "c1 (unknown [val=2147483648])");
}

TEST_F(CapiPkoIdScannerTest, EmptyProviderYieldsNoRecords) {
    provider().containers.clear();
    EXPECT_EQ(scan(), good);
    EXPECT_TRUE(list.is_empty());
}

TEST_F(CapiPkoIdScannerTest, ContainerThatCannotBeOpenedIsSkippedWithADebugMessage) {
    constexpr auto bad_keyset = static_cast<DWORD>(NTE_BAD_KEYSET);
    capi().errors["CryptAcquireContextA c1"] = bad_keyset;
    const LogCapture log(2 | 8 | 16 | 32);
    EXPECT_EQ(scan(), good);
    EXPECT_EQ(records(list), capi_records("c2", AT_SIGNATURE));
    EXPECT_EQ(log.lines().front(),
              "<debug> capi_helper:79 Kes::CapiInit::CapiInit(): CryptAcquireContext() with prov_name=Test "
              "CSP, key_container_name=c1, flags=0x0 failed: " +
                  win_code(bad_keyset));
}

TEST_F(CapiPkoIdScannerTest, KeyWithoutACertificateSkipsOnlyTheRestOfItsContainer) {
    container(0).keys[AT_KEYEXCHANGE].certificate.reset();
    const LogCapture log(2);
    EXPECT_EQ(scan(), good);
    EXPECT_EQ(records(list), capi_records("c2", AT_SIGNATURE));
    EXPECT_EQ(log.lines().front(),
              "<debug> capi_helper:426 Kes::CapiKeyParamReader::read_len(): CryptGetKeyParam(param=26, "
              "flags=0) failed: val=2148532268 [0x8010002c] (unknown winerror)");
}

TEST_F(CapiPkoIdScannerTest, InvalidCertificateSkipsOnlyTheRestOfItsContainerWithAWarning) {
    for (const Bytes& bytes : {Bytes(), Bytes{0x30, 0x01}}) {
        container(0).keys[AT_SIGNATURE].certificate = bytes;
        const LogCapture log(2 | 8 | 16 | 32);
        EXPECT_EQ(scan(), good);
        const Lines lines = log.lines();
        EXPECT_EQ(lines.at(0),
                  "<warn> skipping container 'c1': cert_ossl:55 Kes::OsslCert::OsslCert(): error "
                  "converting certificate from DER to X509 format: rc=0");
        EXPECT_THAT(Lines(lines.begin() + 1, lines.end()), // OpenSSL's error queue
                    testing::Each(testing::ContainsRegex("^[0-9A-F]+:error:")));
        EXPECT_EQ(records(list), capi_records("c1", AT_KEYEXCHANGE) + capi_records("c2", AT_SIGNATURE));
        EXPECT_EQ(capi().unreleased_handles(), 0U);
        EXPECT_EQ(ERR_peek_error(), 0UL);
    }
}

TEST_F(CapiPkoIdScannerTest, UnsupportedCertificateParameterSkipsOnlyTheRestOfItsContainerWithAWarning) {
    script().fail_step(13, win_failure(bad_type)); // the certificate of the first key
    const LogCapture log(2 | 8 | 16 | 32);
    EXPECT_EQ(scan(), good);
    EXPECT_EQ(log.lines(),
              Lines{"<warn> skipping container 'c1': capi_helper:423 Kes::CapiKeyParamReader::read_len(): "
                    "CryptGetKeyParam() with param=26, flags=0 is not supported: val=4 (unsupported)"});
    EXPECT_EQ(records(list), capi_records("c2", AT_SIGNATURE));
}

TEST_F(CapiPkoIdScannerTest, FailedAllocationEndsTheScan) {
    class ShortOfMemory : public PkoIdList {
        std::unique_ptr<PkoId> create_pko_id(PkoType type, std::uint32_t key_type, const std::string& name,
                                             const std::string& cluster_name, const std::string& display_name,
                                             std::unique_ptr<const CertKeyUsage> key_usage) override {
            if (key_type == AT_SIGNATURE) throw std::bad_alloc();
            return PkoIdList::create_pko_id(type, key_type, name, cluster_name, display_name,
                                            std::move(key_usage));
        }
    } short_of_memory;
    short_of_memory.register_scanner(std::make_unique<CapiPkoIdScanner>(csp, nullptr));
    const LogCapture log(2 | 8 | 16 | 32);
    EXPECT_THROW(short_of_memory.scan(Pin()), std::bad_alloc);
    EXPECT_EQ(records(short_of_memory), capi_records("c1", AT_KEYEXCHANGE)); // earlier records are kept
    EXPECT_THAT(script().calls(), testing::Not(testing::Contains(testing::HasSubstr("(c2,"))));
    EXPECT_EQ(log.lines(), Lines());
    EXPECT_EQ(capi().unreleased_handles(), 0U);
}

TEST_F(CapiPkoIdScannerTest, MissingProviderThrows) {
    EXPECT_EQ(scan(nullptr, "Other CSP"),
              "capi_helper:79 Kes::CapiInit::CapiInit(): CryptAcquireContext() with prov_name=Other CSP, "
              "key_container_name=nullptr, flags=0xf0000000 failed: val=2148073497 [0x80090019] (unknown "
              "winerror)");
}

TEST_F(CapiPkoIdScannerTest, ContainerNamesAreUsedUnchanged) {
    const std::string odd_names[] = {"le-{1234}\\a b; c", "J\xf6rg", std::string(200, 'n')};
    Lines expected;
    provider().containers.resize(1);
    provider().ends_names = false;
    for (const auto& name : odd_names) {
        container(0).name = name;
        EXPECT_EQ(scan(digital_signature_filter()), good);
        EXPECT_EQ(records(list), capi_records(name, AT_SIGNATURE));
    }
}

TEST_F(CapiPkoIdScannerTest, AllHandlesAreReleasedAfterAScanOfAThousandContainers) {
    const ScriptedContainer pattern = container(1);
    provider().containers.assign(1000, pattern);
    Lines expected;
    for (int i = 0; i < 1000; ++i) {
        provider().containers[static_cast<std::size_t>(i)].name = "k" + std::to_string(i);
        expected = std::move(expected) + capi_records("k" + std::to_string(i), AT_SIGNATURE);
    }
    EXPECT_EQ(scan(), good);
    EXPECT_EQ(records(list), expected);
    EXPECT_EQ(capi().unreleased_handles(), 0U);
}

} // namespace
} // namespace Kes::test
