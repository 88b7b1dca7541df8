// Tests of the scan of a certificate store with the functions of Windows itself.
#include "capi/pko_id_scanner_capi_store.h"

#include <algorithm>
#include <memory>

#include "support/csp_card_fixture.h"

namespace Kes::test {
namespace {

class CapiStorePkoIdScannerTest : public ::testing::Test {
protected:
    std::unique_ptr<CapiStorePkoIdScanner> make_scanner() const {
        return std::make_unique<CapiStorePkoIdScanner>(system_store.name().c_str(), nullptr);
    }

    static Lines private_keys(const PkoIdList& list) {
        Lines names;
        for (const PkoId* id = list.find_first(PkoType::private_key); id != nullptr;
             id = list.find_next(PkoType::private_key, id))
            names.push_back(id->name);
        return names;
    }

    TempStore system_store;
};

TEST_F(CapiStorePkoIdScannerTest, AddsThreeRecordsNamedAfterTheSubject) {
    system_store.add(prepared_certificate("several"));
    const PkoIdList list(make_scanner(), Pin());
    std::string expected;
    const std::string name = "AT, Test Makers, First, Second, Several Names";
    for (const char* type : {"private_key", "public_key", "certificate"})
        expected += name + " [type=" + type + ", key_type=0, name=" + name + ", cluster_name=" + name + "]\n";
    EXPECT_EQ(text_of(list), expected);
}

TEST_F(CapiStorePkoIdScannerTest, EachOfSeveralEqualSubjectsIsRecordedAndTheFirstIsFound) {
    system_store.add({prepared_certificate("twin_1"), prepared_certificate("twin_2")});
    const PkoIdList list(make_scanner(), Pin());
    EXPECT_EQ(private_keys(list), (Lines{"Twin", "Twin"}));
    EXPECT_EQ(list.find(PkoType::private_key, 0, "Twin"), list.find_first(PkoType::private_key));
}

TEST_F(CapiStorePkoIdScannerTest, CertificateWithoutASubjectIsRecordedWithAnEmptyName) {
    system_store.add(prepared_certificate("empty"));
    const PkoIdList list(make_scanner(), Pin());
    EXPECT_EQ(private_keys(list), Lines{""});
}

TEST_F(CapiStorePkoIdScannerTest, AllOfAThousandCertificatesAreFound) {
    std::vector<Bytes> certificates;
    Lines names;
    for (int number = 0; number < 1000; ++number) {
        certificates.push_back(numbered_certificate(number));
        names.push_back("Number " + std::string(4 - std::to_string(number).size(), '0') +
                        std::to_string(number));
    }
    system_store.add(certificates);
    const LogCapture log(60);
    const PkoIdList list(make_scanner(), Pin());
    Lines found = private_keys(list);
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, names);
    EXPECT_THAT(log.lines(), ::testing::Contains("<info> found 1000 certs in store " + system_store.name()));
}

} // namespace
} // namespace Kes::test
