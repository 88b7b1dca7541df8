#include "utils/cert_key_usage.h"

#include <array>
#include <gtest/gtest.h>

#include "support/support.h"
#include "unit_certs.h"

namespace Kes {
namespace {

using test::Lines;
using test::LogCapture;
using test::unit_cert;

constexpr auto client_auth = "1.3.6.1.5.5.7.3.2";
constexpr std::uint32_t info_and_above = 60; // without the trace lines of the certificates

CertKeyUsage usage_of(const std::string& cert) { return CertKeyUsage(unit_cert(cert)); }

/// The results that the definition of the filters requires: one row for each filter type and certificate, one
/// character for each requirement ('1' passes).
struct Row {
    FilterType type;
    const char* cert; ///< part of the name of the certificate
    const char* results;
};

constexpr std::array<std::uint32_t, 6> masks{0, 0x80, 0xa0, 0x20, 0x8001, 0x180};

constexpr std::array key_usage_rows{
    Row{FilterType::all, "none", "111111"},
    Row{FilterType::all, "80", "111111"},
    Row{FilterType::all, "a0", "111111"},
    Row{FilterType::all, "20", "111111"},
    Row{FilterType::exact, "none", "000000"},
    Row{FilterType::exact, "80", "010000"},
    Row{FilterType::exact, "a0", "011100"},
    Row{FilterType::exact, "20", "000100"},
    Row{FilterType::exact_none, "none", "111111"},
    Row{FilterType::exact_none, "80", "010000"},
    Row{FilterType::exact_none, "a0", "011100"},
    Row{FilterType::exact_none, "20", "000100"},
    Row{static_cast<FilterType>(7), "none", "000000"},
    Row{static_cast<FilterType>(7), "80", "010000"},
    Row{static_cast<FilterType>(7), "a0", "011100"},
    Row{static_cast<FilterType>(7), "20", "000100"},
};

// Besides complete numbers: an empty text, a prefix, a longer number, a name, and a number with a blank.
constexpr std::array names{
    "",           "1.3.6.1.5.5.7.3.2", "1.3.6.1.5.5.7.3.4", "1.3.6.1.5.5.7.3", "1.3.6.1.5.5.7.3.22",
    "clientAuth", "1.3.6.1.5.5.7.3.2 "};

constexpr std::array ext_key_usage_rows{
    Row{FilterType::all, "none", "1111111"},
    Row{FilterType::all, "client", "1111111"},
    Row{FilterType::all, "email", "1111111"},
    Row{FilterType::all, "email_client", "1111111"},
    Row{FilterType::exact, "none", "0000000"},
    Row{FilterType::exact, "client", "0100000"},
    Row{FilterType::exact, "email", "0010000"},
    Row{FilterType::exact, "email_client", "0110000"},
    Row{FilterType::exact_none, "none", "1111111"},
    Row{FilterType::exact_none, "client", "0100000"},
    Row{FilterType::exact_none, "email", "0010000"},
    Row{FilterType::exact_none, "email_client", "0110000"},
    Row{static_cast<FilterType>(7), "none", "0000000"},
    Row{static_cast<FilterType>(7), "client", "0100000"},
    Row{static_cast<FilterType>(7), "email", "0010000"},
    Row{static_cast<FilterType>(7), "email_client", "0110000"},
};

class CertKeyUsageFilterTest : public testing::Test {
protected:
    /// Checks every combination of requirements of the two rows with the certificate that both rows name.
    static void check_all(const Row& row, const Row& ext_row) {
        const CertKeyUsage key_usage = usage_of(std::string("ku_") + row.cert + "_eku_" + ext_row.cert);
        const LogCapture log(info_and_above);
        Lines expected_lines;
        for (std::size_t i = 0; i < masks.size(); ++i)
            for (std::size_t j = 0; j < names.size(); ++j) {
                const char result = row.results[i];
                const char ext_result = ext_row.results[j];
                const CertKeyUsageFilter filter(row.type, masks[i], ext_row.type, names[j]);
                EXPECT_EQ(filter.check(key_usage), result == '1' && ext_result == '1')
                    << "types " << static_cast<int>(row.type) << ' ' << static_cast<int>(ext_row.type)
                    << ", certificate " << row.cert << ' ' << ext_row.cert << ", requirement " << masks[i]
                    << " '" << names[j] << "'";
                expected_lines.push_back(std::string("<info> key usage check returned: ") + result);
                if (result == '1')
                    expected_lines.push_back(std::string("<info> extended key usage check returned: ") +
                                             ext_result);
            }
        EXPECT_EQ(log.lines(), expected_lines);
    }
};

TEST_F(CertKeyUsageFilterTest, EveryFilterTypeAppliesItsRuleToEveryCertificate) {
    for (const Row& row : key_usage_rows)
        for (const Row& ext_row : ext_key_usage_rows)
            check_all(row, ext_row);
}

TEST_F(CertKeyUsageFilterTest, DigitalSignatureIsRequired) {
    const CertKeyUsageFilter filter(FilterType::exact, 0x80, FilterType::all, "");
    EXPECT_TRUE(filter.check(usage_of("ku_a0_eku_none")));
    EXPECT_FALSE(filter.check(usage_of("ku_20_eku_none")));
    EXPECT_FALSE(filter.check(usage_of("ku_none_eku_none")));
    const CertKeyUsageFilter optional_filter(FilterType::exact_none, 0x80, FilterType::all, "");
    EXPECT_TRUE(optional_filter.check(usage_of("ku_none_eku_none")));
}

TEST_F(CertKeyUsageFilterTest, ClientAuthenticationIsRequired) {
    const CertKeyUsageFilter filter(FilterType::all, 0, FilterType::exact, client_auth);
    EXPECT_TRUE(filter.check(usage_of("ku_none_eku_email_client")));
    EXPECT_FALSE(filter.check(usage_of("ku_none_eku_email")));
    EXPECT_FALSE(filter.check(usage_of("ku_none_eku_none")));
    const CertKeyUsageFilter optional_filter(FilterType::all, 0, FilterType::exact_none, client_auth);
    EXPECT_TRUE(optional_filter.check(usage_of("ku_none_eku_none")));
}

TEST_F(CertKeyUsageFilterTest, ExactFilterWithoutBitsRejectsEveryCertificateWithKeyUsage) {
    const CertKeyUsageFilter filter(FilterType::exact, 0, FilterType::all, "");
    for (const char* cert : {"all_key_usages", "only_decipher_only", "ku_80_eku_client"})
        EXPECT_FALSE(filter.check(usage_of(cert))) << cert;
}

TEST_F(CertKeyUsageFilterTest, BitsAboveTheLowByteAreChecked) {
    const CertKeyUsageFilter filter(FilterType::exact, 0x8000, FilterType::all, "");
    EXPECT_TRUE(filter.check(usage_of("only_decipher_only")));
    EXPECT_TRUE(filter.check(usage_of("all_key_usages")));
    EXPECT_FALSE(filter.check(usage_of("ku_a0_eku_none")));
}

TEST_F(CertKeyUsageFilterTest, ExtendedMaskIsIgnored) {
    // The list contains an unknown number, which has no bit in the mask.
    const CertKeyUsageFilter filter(FilterType::all, 0, FilterType::exact, "1.3.6.1.4.1.99999.1.2.3");
    EXPECT_TRUE(filter.check(usage_of("unknown_ext_key_usage")));
}

TEST_F(CertKeyUsageFilterTest, FilterOfTypeAllAcceptsTheEmptyKeyUsageAndEveryCertificate) {
    const CertKeyUsageFilter filter(FilterType::all, 0, FilterType::all, "");
    EXPECT_TRUE(filter.check(CertKeyUsage()));
    EXPECT_TRUE(filter.check(usage_of("all_key_usages")));
    EXPECT_TRUE(filter.check(usage_of("ku_none_eku_none")));
}

TEST_F(CertKeyUsageFilterTest, EmptyKeyUsagePassesUnlessAnExactFilterRequiresIt) {
    for (const FilterType type : {FilterType::all, FilterType::exact, FilterType::exact_none})
        for (const FilterType ext_type : {FilterType::all, FilterType::exact, FilterType::exact_none})
            EXPECT_EQ(CertKeyUsageFilter(type, 0x80, ext_type, client_auth).check(CertKeyUsage()),
                      type != FilterType::exact && ext_type != FilterType::exact);
}

TEST_F(CertKeyUsageFilterTest, ExtendedKeyUsageIsNotCheckedAfterAFailedKeyUsageCheck) {
    const CertKeyUsage key_usage = usage_of("ku_20_eku_client");
    const LogCapture log;
    EXPECT_FALSE(CertKeyUsageFilter(FilterType::exact, 0x80, FilterType::all, "").check(key_usage));
    EXPECT_EQ(log.lines(), (Lines{"<info> key usage check returned: 0"}));
}

TEST_F(CertKeyUsageFilterTest, BothChecksLogTheirResult) {
    const CertKeyUsage key_usage = usage_of("ku_80_eku_client");
    const LogCapture log;
    EXPECT_FALSE(CertKeyUsageFilter(FilterType::exact, 0x80, FilterType::exact, "1.2").check(key_usage));
    EXPECT_TRUE(CertKeyUsageFilter(FilterType::exact, 0x80, FilterType::exact, client_auth).check(key_usage));
    EXPECT_EQ(log.lines(),
              (Lines{"<info> key usage check returned: 1", "<info> extended key usage check returned: 0",
                     "<info> key usage check returned: 1", "<info> extended key usage check returned: 1"}));
}

} // namespace
} // namespace Kes
