#include "utils/cert_key_usage.h"

#include <array>
#include <gtest/gtest.h>
#include <openssl/err.h>

#include "hooks.h"
#include "support/support.h"
#include "unit_certs.h"
#include "utils/cert_ossl.h"

namespace Kes {
namespace {

using test::Lines;
using test::LogCapture;
using test::unit_cert;

constexpr auto client_auth = "1.3.6.1.5.5.7.3.2";
constexpr std::uint32_t info_and_above = 60; // without the trace lines of the certificates
constexpr std::uint32_t warnings_and_above = 56;

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

/// A certificate, the warnings when it is read, and the results for the types all, exact and exact_none.
struct WarningRow {
    const char* cert;
    const char* subject;
    bool warns_of_key_usage;
    bool warns_of_ext_key_usage;
    const char* results;     ///< for digital signature
    const char* ext_results; ///< for client authentication
};

constexpr std::array warning_rows{
    WarningRow{"ku_none_eku_none", "CN=ku_none_eku_none", false, false, "101", "101"},
    WarningRow{"ku_80_eku_client", "CN=ku_80_eku_client", false, false, "111", "111"},
    WarningRow{"ku_20_eku_email", "CN=ku_20_eku_email", false, false, "100", "100"},
    WarningRow{"unknown_ext_key_usage", "CN=unknown_ext_key_usage", false, false, "101", "100"},
    WarningRow{"broken_key_usage", "CN=broken_key_usage", true, false, "101", "111"},
    WarningRow{"doubled_key_usage", "CN=twice", true, false, "101", "111"},
    WarningRow{"empty_key_usage", "CN=empty_key_usage", true, false, "101", "101"},
    WarningRow{"empty_ext_key_usage", "CN=empty_ext_key_usage", false, true, "101", "101"},
    // A broken extension makes the whole certificate invalid. OpenSSL then returns no key usage either.
    WarningRow{"broken_ext_key_usage", "CN=broken_ext_key_usage", true, true, "101", "101"},
    WarningRow{"doubled_ext_key_usage", "CN=twice", true, true, "101", "101"},
    WarningRow{"broken_usages", "CN=broken_usages", true, true, "101", "101"},
    WarningRow{"broken_constraints", "CN=broken_constraints", true, false, "101", "111"},
    WarningRow{"only_broken_constraints", "CN=only_broken_constraints", false, false, "101", "101"},
};

/// The results of the filter for the three types, '1' for each that passes.
template <typename MakeFilter>
std::string results_of(const CertKeyUsage& key_usage, MakeFilter make_filter) {
    std::string results;
    for (const FilterType type : {FilterType::all, FilterType::exact, FilterType::exact_none})
        results += make_filter(type).check(key_usage) ? '1' : '0';
    return results;
}

Lines expected_warnings(const WarningRow& row) {
    const auto warning = [&](const char* extension) {
        return std::string("<warn> no usage can be read from the ") + extension +
               " extension of certificate '" + row.subject + "'; the extension counts as absent";
    };
    Lines lines;
    if (row.warns_of_key_usage) lines.push_back(warning("key usage"));
    if (row.warns_of_ext_key_usage) lines.push_back(warning("extended key usage"));
    return lines;
}

class CertKeyUsageFilterTest : public testing::Test {
protected:
    static UsageVerdict verdict(char result, char ext_result) {
        if (result == '0') return UsageVerdict::wrong_key_usage;
        return ext_result == '0' ? UsageVerdict::wrong_ext_key_usage : UsageVerdict::fits;
    }

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
                EXPECT_EQ(filter.judge(key_usage), verdict(result, ext_result))
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

TEST_F(CertKeyUsageFilterTest, ExtensionWithoutReadableUsageCountsAsAbsentWithOneWarning) {
    ::ERR_clear_error();
    for (const WarningRow& row : warning_rows) {
        SCOPED_TRACE(row.cert);
        const LogCapture log(warnings_and_above);
        const CertKeyUsage key_usage = usage_of(row.cert);
        EXPECT_EQ(
            results_of(key_usage,
                       [](FilterType type) { return CertKeyUsageFilter(type, 0x80, FilterType::all, ""); }),
            row.results);
        EXPECT_EQ(results_of(key_usage,
                             [](FilterType type) {
                                 return CertKeyUsageFilter(FilterType::all, 0, type, client_auth);
                             }),
                  row.ext_results);
        EXPECT_EQ(log.lines(), expected_warnings(row));
        EXPECT_EQ(::ERR_peek_error(), 0UL);
    }
}

TEST_F(CertKeyUsageFilterTest, SubjectThatCannotBePrintedIsLeftOutOfTheWarning) {
    const OsslCert cert(unit_cert("broken_key_usage"));
    const LogCapture log(warnings_and_above);
    test::OsslCalls calls;
    calls.name_print_result = 0;
    EXPECT_EQ(CertKeyUsage(cert.x509()).kuse_mask(), 0U);
    EXPECT_EQ(log.lines(),
              Lines{"<warn> no usage can be read from the key usage extension of certificate ''; "
                    "the extension counts as absent"});
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
