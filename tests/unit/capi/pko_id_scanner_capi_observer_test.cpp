#include "capi/pko_id_scanner_capi.h"
#include "capi/pko_id_scanner_capi_store.h"

#include "support/capi_fixture.h"
#include "support/key_findings.h"

namespace Kes::test {
namespace {

constexpr const char* client_authentication = "1.3.6.1.5.5.7.3.2";

class CapiPkoIdScannerObserverTest : public CapiTest {
protected:
    /// Scans with an observer and a filter for digital signature and client authentication.
    /// @return what the observer has learned
    template <typename Scanner>
    Lines scan(const char* source) {
        auto scanner = std::make_unique<Scanner>(
            source, std::make_unique<CertKeyUsageFilter>(FilterType::exact_none, 0x80, FilterType::exact,
                                                         client_authentication));
        KeyFindings findings;
        scanner->set_observer(&findings);
        list.register_scanner(std::move(scanner));
        list.scan(Pin());
        return findings.lines;
    }

    static std::string key(const std::string& name, const std::string& display, int key_type) {
        return "key " + display + " [type=private_key, key_type=" + std::to_string(key_type) +
               ", name=" + name + ", cluster_name=" + name + "]; ";
    }

    PkoIdList list;
};

TEST_F(CapiPkoIdScannerObserverTest, EveryKeyOfAProviderIsReportedWithItsVerdict) {
    container(1).keys[AT_SIGNATURE].certificate = cert_der("bare");
    EXPECT_EQ(scan<CapiPkoIdScanner>(csp),
              (Lines{key("c1", "c1 (KEYEXCHANGE)", 1) + "Exchanger; usage 32; wrong key usage",
                     key("c1", "c1 (SIGNATURE)", 2) + "Signer; usage 128; offered",
                     key("c2", "c2 (SIGNATURE)", 2) + "No Usage; usage 0; wrong extended key usage"}));
    EXPECT_EQ(records(list), capi_records("c1", AT_SIGNATURE));
}

TEST_F(CapiPkoIdScannerObserverTest, ContainerWhoseKeyHasNoCertificateIsReportedWithThatKey) {
    container(0).keys[AT_SIGNATURE].certificate.reset();
    capi().errors["CryptAcquireContextA c2"] = ordinary;
    EXPECT_EQ(scan<CapiPkoIdScanner>(csp),
              (Lines{key("c1", "c1 (KEYEXCHANGE)", 1) + "Exchanger; usage 32; wrong key usage",
                     "failed container c1, key type 2: capi_helper:426 "
                     "Kes::CapiKeyParamReader::read_len(): CryptGetKeyParam(param=26, flags=0) failed: " +
                         win_code(0x8010002c),
                     "failed container c2, key type 0: capi_helper:79 Kes::CapiInit::CapiInit(): "
                     "CryptAcquireContext() with prov_name=Test CSP, key_container_name=c2, flags=0x0 "
                     "failed: " +
                         win_code(ordinary)}));
    EXPECT_TRUE(list.is_empty());
}

TEST_F(CapiPkoIdScannerObserverTest, EveryCertificateOfAStoreIsReportedWithItsVerdict) {
    const std::string signer = "AT, Test Makers, Signer";
    const std::string exchanger = "AT, Test Makers, Exchanger";
    EXPECT_EQ(scan<CapiStorePkoIdScanner>("MY"),
              (Lines{key(signer, signer, 0) + "Signer; usage 128; offered",
                     key(exchanger, exchanger, 0) + "Exchanger; usage 32; wrong key usage",
                     key("No Usage", "No Usage", 0) + "No Usage; usage 0; wrong extended key usage"}));
    EXPECT_EQ(records(list), store_records(signer));
}

} // namespace
} // namespace Kes::test
