// Tests of the scan of the test card with the functions of Windows itself.
#include "capi/pko_id_scanner_capi.h"

#include <memory>

#include "support/csp_card_fixture.h"

namespace Kes::test {
namespace {

class CapiPkoIdScannerTest : public CardTest {};

TEST_F(CapiPkoIdScannerTest, AddsThreeRecordsForEachKeyInAscendingOrder) {
    card.add("sign");
    PkoIdList list(std::make_unique<CapiPkoIdScanner>(card_provider, nullptr), Pin());
    std::string expected;
    for (const char* name : {"both (KEYEXCHANGE) [%, key_type=1, name=both, cluster_name=both]\n",
                             "both (SIGNATURE) [%, key_type=2, name=both, cluster_name=both]\n",
                             "sign (SIGNATURE) [%, key_type=2, name=sign, cluster_name=sign]\n"})
        for (const char* type : {"type=private_key", "type=public_key", "type=certificate"})
            expected += std::string(name).replace(std::string(name).find('%'), 1, type);
    EXPECT_EQ(text_of(list), expected);
}

TEST_F(CapiPkoIdScannerTest, UnsupportedCertificateParameterSkipsOnlyItsContainerWithAWarning) {
    card.add("sign");
    card.fail("certificate_size@both", bad_type);
    const PkoIdList list(std::make_unique<CapiPkoIdScanner>(card_provider, nullptr), Pin());
    EXPECT_THAT(
        log.lines(),
        testing::Contains("<warn> skipping container 'both': capi_helper:423 "
                          "Kes::CapiKeyParamReader::read_len(): CryptGetKeyParam() with param=26, flags=0 "
                          "is not supported: val=4 (unsupported)"));
    ASSERT_NE(list.find_first(PkoType::private_key), nullptr);
    EXPECT_EQ(list.find_first(PkoType::private_key)->name, "sign");
    EXPECT_EQ(list.find_next(PkoType::private_key, list.find_first(PkoType::private_key)), nullptr);
}

} // namespace
} // namespace Kes::test
