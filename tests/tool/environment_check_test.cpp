#include "tool/environment_check.h"

#include <gtest/gtest.h>

#include "support/types.h"

namespace Kes::test {
namespace {

/// Each mistake as "finding; remedy".
Lines mistakes(const tool::Variables& variables) {
    Lines lines;
    for (const tool::EnvironmentMistake& mistake : tool::check_environment(variables))
        lines.push_back(mistake.finding + "; " + mistake.remedy);
    return lines;
}

Lines mistakes_of(const std::string& name, const std::string& value) {
    return mistakes({{"ossl_scard_cfg_" + name, value}});
}

TEST(EnvironmentCheckTest, RightVariablesAndThoseOfOtherProgramsAreNoMistakes) {
    EXPECT_EQ(mistakes({{"ossl_scard_cfg_crypto_if", "pkcs11"},
                        {"ossl_scard_cfg_pkcs11_module_dll", "a file.so"},
                        {"ossl_scard_cfg_key_usage_filter", "0x80"},
                        {"ossl_scard_cfg_ext_key_usage_filter", "1.3.6.1.5.5.7.3.2"},
                        {"ossl_scard_cfg_logfile_severity", "63"},
                        {"ossl_scard_cfg_logfile", " "},
                        {"PATH", "/bin"},
                        {"OPENSSL_CONF", "x"}}),
              Lines());
}

TEST(EnvironmentCheckTest, MisspeltNameSuggestsTheRightOne) {
    EXPECT_EQ(mistakes_of("crpyto_if", "pkcs11"),
              Lines{"ossl_scard_cfg_crpyto_if is not a setting and has no effect; rename it to "
                    "ossl_scard_cfg_crypto_if"});
    EXPECT_EQ(mistakes({{"ossl_scard_pkcs11_module_dl", "x"}}), Lines());
    EXPECT_EQ(mistakes({{"osslscard_cfg_pkcs11_module_dll", "x"}}),
              Lines{"osslscard_cfg_pkcs11_module_dll is not a setting and has no effect; rename it to "
                    "ossl_scard_cfg_pkcs11_module_dll"});
}

TEST(EnvironmentCheckTest, NameOfASettingSuggestsItsVariable) {
    EXPECT_EQ(mistakes_of("xkuse_nid_filter", "x"),
              Lines{"ossl_scard_cfg_xkuse_nid_filter is not a setting and has no effect; rename it to "
                    "ossl_scard_cfg_ext_key_usage_filter"});
    EXPECT_EQ(mistakes_of("kuse_filter", "128"),
              Lines{"ossl_scard_cfg_kuse_filter is not a setting and has no effect; rename it to "
                    "ossl_scard_cfg_key_usage_filter"});
    EXPECT_EQ(mistakes_of("log_severity", "63"),
              Lines{"ossl_scard_cfg_log_severity is not a setting and has no effect; rename it to "
                    "ossl_scard_cfg_logfile_severity"});
}

TEST(EnvironmentCheckTest, PartOfANameSuggestsAllSettingsThatHaveIt) {
    EXPECT_EQ(mistakes_of("module", "a file.so"),
              Lines{"ossl_scard_cfg_module is not a setting and has no effect; rename it to "
                    "ossl_scard_cfg_pkcs11_module_dll"});
    EXPECT_EQ(mistakes_of("engine", "a file.so"),
              Lines{"ossl_scard_cfg_engine is not a setting and has no effect; rename it to "
                    "ossl_scard_cfg_capi_openssl_engine_dll, ossl_scard_cfg_pkcs11_openssl_engine_dll or "
                    "ossl_scard_cfg_capi_store_openssl_engine_dll"});
    EXPECT_EQ(tool::meant_settings("module"), "pkcs11_module_dll");
    EXPECT_EQ(tool::meant_settings("Engine"),
              "capi_openssl_engine_dll, pkcs11_openssl_engine_dll or capi_store_openssl_engine_dll");
}

// The log would overwrite the file that such a variable names.
TEST(EnvironmentCheckTest, ShortNameOfAnotherFileDoesNotSuggestTheLogFile) {
    for (const char* name : {"modul", "lib", "libfile", "keyfile", "profile", "modulfile", ""})
        EXPECT_EQ(mistakes_of(name, "a file.so"), Lines{"ossl_scard_cfg_" + std::string(name) +
                                                        " is not a setting and has no effect; remove it"});
    EXPECT_EQ(mistakes_of("log_file", "x"),
              Lines{"ossl_scard_cfg_log_file is not a setting and has no effect; rename it to "
                    "ossl_scard_cfg_logfile"});
}

TEST(EnvironmentCheckTest, NameThatResemblesNoneSuggestsNothing) {
    EXPECT_EQ(mistakes_of("colour_of_the_card", "red"),
              Lines{"ossl_scard_cfg_colour_of_the_card is not a setting and has no effect; remove it"});
}

TEST(EnvironmentCheckTest, BackEndMustBeSpeltExactly) {
    EXPECT_EQ(mistakes_of("crypto_if", "PKCS11"),
              Lines{"ossl_scard_cfg_crypto_if=PKCS11 names no back-end; set it to pkcs11"});
    EXPECT_EQ(
        mistakes_of("crypto_if", "smart card"),
        Lines{"ossl_scard_cfg_crypto_if=smart card names no back-end; set it to capi, pkcs11 or capi_store"});
}

TEST(EnvironmentCheckTest, NumberMustBeWhole) {
    EXPECT_EQ(
        mistakes_of("logfile_severity", "abc"),
        Lines{"ossl_scard_cfg_logfile_severity=abc is not a whole number from 0 to 4294967295 and counts "
              "as 0; set it to a number"});
    EXPECT_EQ(mistakes_of("key_usage_filter", "128,32"),
              Lines{"ossl_scard_cfg_key_usage_filter=128,32 is not a whole number from 0 to 4294967295 and "
                    "counts as 128; set it to a number"});
    EXPECT_EQ(
        mistakes_of("logfile_append", "yes"),
        Lines{"ossl_scard_cfg_logfile_append=yes is not a whole number from 0 to 4294967295 and counts as "
              "0; set it to a number"});
    EXPECT_EQ(
        mistakes_of("logfile_append", "-1"),
        Lines{"ossl_scard_cfg_logfile_append=-1 is not a whole number from 0 to 4294967295 and counts as "
              "4294967295; set it to a number"});
    EXPECT_EQ(mistakes_of("logfile_append", "4294967296"),
              Lines{"ossl_scard_cfg_logfile_append=4294967296 is not a whole number from 0 to 4294967295 and "
                    "counts as 4294967295; set it to a number"});
}

TEST(EnvironmentCheckTest, NumberMustHaveAMeaning) {
    EXPECT_EQ(mistakes_of("capi_key_type", "3"),
              Lines{"ossl_scard_cfg_capi_key_type=3 is no type of key; set it to 1 (key exchange) or 2 "
                    "(signature)"});
    EXPECT_EQ(
        mistakes_of("ext_key_usage_filter_type", "7"),
        Lines{"ossl_scard_cfg_ext_key_usage_filter_type=7 is no type of filter and has the effect of 1; "
              "set it to 0 (all), 1 (exact) or 2 (exact_none)"});
    EXPECT_EQ(
        mistakes_of("key_usage_filter", "0x10080"),
        Lines{"ossl_scard_cfg_key_usage_filter=0x10080 contains a bit that is no key usage; set it to a "
              "sum of key usages, such as 128"});
    EXPECT_EQ(
        mistakes_of("logfile_severity", "64"),
        Lines{"ossl_scard_cfg_logfile_severity=64 contains a bit that is no severity; set it to a sum of "
              "severities, such as 63"});
}

TEST(EnvironmentCheckTest, ExtendedKeyUsageMustBeDotted) {
    EXPECT_EQ(
        mistakes_of("ext_key_usage_filter", "clientAuth"),
        Lines{"ossl_scard_cfg_ext_key_usage_filter=clientAuth is not an object identifier in dotted form; "
              "set it to 1.3.6.1.5.5.7.3.2"});
    EXPECT_EQ(
        mistakes_of("ext_key_usage_filter", "client"),
        Lines{"ossl_scard_cfg_ext_key_usage_filter=client is not an object identifier in dotted form; set "
              "it to one, such as 1.3.6.1.5.5.7.3.2 for clientAuth"});
}

TEST(EnvironmentCheckTest, QuotationMarksArePartOfAValue) {
    EXPECT_EQ(
        mistakes_of("pkcs11_module_dll", "\"C:\\card.dll\""),
        Lines{"ossl_scard_cfg_pkcs11_module_dll=\"C:\\card.dll\" begins and ends with a quotation mark, "
              "which is a part of the value; remove the quotation marks"});
}

TEST(EnvironmentCheckTest, EmptyVariableIsNoMistake) { EXPECT_EQ(mistakes_of("crypto_if", ""), Lines()); }

} // namespace
} // namespace Kes::test
