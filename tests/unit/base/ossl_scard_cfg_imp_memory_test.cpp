#include <array>
#include <cstring>
#include <gtest/gtest.h>
#include <new>
#include <string>

#include "base/ossl_scard_cfg_imp.h"
#include "support/failing_allocation.h"
#include "support/support.h"

namespace Kes::test {
namespace {

using Lines = std::vector<std::string>;

const std::string old_value(100, 'o'); // too long for the small-string optimisation
const std::string new_value(200, 'n');

struct TextSetting {
    const char* name;
    void (OsslScardCfg::*set)(const char*);
    const char* (OsslScardCfg::*get)() const;
};

constexpr std::array text_settings{
    TextSetting{"capi_openssl_engine_dll", &OsslScardCfg::set_capi_openssl_engine_dll,
                &OsslScardCfg::get_capi_openssl_engine_dll},
    TextSetting{"capi_csp_name", &OsslScardCfg::set_capi_csp_name, &OsslScardCfg::get_capi_csp_name},
    TextSetting{"pkcs11_openssl_engine_dll", &OsslScardCfg::set_pkcs11_openssl_engine_dll,
                &OsslScardCfg::get_pkcs11_openssl_engine_dll},
    TextSetting{"pkcs11_module_dll", &OsslScardCfg::set_pkcs11_module_dll,
                &OsslScardCfg::get_pkcs11_module_dll},
    TextSetting{"capi_store_openssl_engine_dll", &OsslScardCfg::set_capi_store_openssl_engine_dll,
                &OsslScardCfg::get_capi_store_openssl_engine_dll},
    TextSetting{"capi_store_cert_store_name", &OsslScardCfg::set_capi_store_cert_store_name,
                &OsslScardCfg::get_capi_store_cert_store_name},
    TextSetting{"priv_key_name", &OsslScardCfg::set_priv_key_name, &OsslScardCfg::get_priv_key_name},
    TextSetting{"cert_name", &OsslScardCfg::set_cert_name, &OsslScardCfg::get_cert_name},
    TextSetting{"xkuse_nid_filter", &OsslScardCfg::set_xkuse_nid_filter, &OsslScardCfg::get_xkuse_nid_filter},
    TextSetting{"logfile", &OsslScardCfg::set_logfile, &OsslScardCfg::get_logfile}};

class OsslScardCfgImpMemoryTest : public ::testing::Test {
protected:
    OsslScardCfgPtr cfg{new OsslScardCfgImp(OsslScardCfg::capi)};
    LogCapture log;
};

TEST_F(OsslScardCfgImpMemoryTest, SetterThatCannotStoreItsValueKeepsTheOldValueAndLogsAnError) {
    Lines expected;
    for (const TextSetting& setting : text_settings) {
        (*cfg.*setting.set)(old_value.c_str());
        {
            const FailingAllocation failing(1);
            (*cfg.*setting.set)(new_value.c_str());
        }
        EXPECT_EQ((*cfg.*setting.get)(), old_value) << setting.name;
        expected.push_back(std::string("<error> setting ") + setting.name +
                           " keeps its old value: std::bad_alloc");
    }
    EXPECT_EQ(log.lines(), expected);
}

TEST_F(OsslScardCfgImpMemoryTest, SetterThrowsWhenTheLibraryItselfCallsIt) {
    const ThrowingSetters throwing_setters;
    for (const TextSetting& setting : text_settings) {
        (*cfg.*setting.set)(old_value.c_str());
        {
            const FailingAllocation failing(1);
            EXPECT_THROW((*cfg.*setting.set)(new_value.c_str()), std::bad_alloc) << setting.name;
        }
        EXPECT_EQ((*cfg.*setting.get)(), old_value) << setting.name;
    }
    EXPECT_EQ(log.lines(), Lines());
}

TEST_F(OsslScardCfgImpMemoryTest, FailedCloneReturnsNullAndLogsAnError) {
    for (const TextSetting& setting : text_settings)
        (*cfg.*setting.set)(old_value.c_str());
    OsslScardCfgPtr copy;
    const std::size_t failures = for_each_failing_allocation(
        [&] { copy.reset(cfg->clone()); }, [&](bool has_failed) { EXPECT_EQ(copy == nullptr, has_failed); });
    EXPECT_GE(failures, 11U); // the object and each of the ten texts
    EXPECT_EQ(log.lines(), Lines(failures, "<error> configuration cannot be cloned: std::bad_alloc"));
}

TEST_F(OsslScardCfgImpMemoryTest, DumpIsTruncatedAndTerminatedWhenMemoryRunsOut) {
    std::array<char, 4096> whole{};
    cfg->dump_settings(whole.data(), whole.size());
    std::array<char, 4096> cut{};
    cut.fill('x');
    const char* returned = nullptr;
    const std::size_t failures =
        for_each_failing_allocation([&] { returned = cfg->dump_settings(cut.data(), cut.size()); },
                                    [&](bool has_failed) {
                                        EXPECT_EQ(returned, cut.data());
                                        const std::string text = cut.data();
                                        EXPECT_EQ(std::string(whole.data()).rfind(text, 0), 0U) << text;
                                        EXPECT_EQ(text == whole.data(), !has_failed);
                                    });
    EXPECT_GE(failures, 3U);
    EXPECT_EQ(log.lines(), Lines(failures, "<error> settings dump is cut: std::bad_alloc"));
}

TEST_F(OsslScardCfgImpMemoryTest, DescriptionIsTruncatedAndTerminatedWhenMemoryRunsOut) {
    std::array<char, 4096> whole{};
    cfg->get_crypto_if_description(OsslScardCfg::capi, whole.data(), whole.size());
    std::array<char, 4096> cut{};
    cut.fill('x');
    const char* returned = nullptr;
    const std::size_t failures = for_each_failing_allocation(
        [&] { returned = cfg->get_crypto_if_description(OsslScardCfg::capi, cut.data(), cut.size()); },
        [&](bool has_failed) {
            EXPECT_EQ(returned, cut.data());
            const std::string text = cut.data();
            EXPECT_EQ(std::string(whole.data()).rfind(text, 0), 0U) << text;
            EXPECT_EQ(text == whole.data(), !has_failed);
        });
    EXPECT_GE(failures, 2U);
    EXPECT_EQ(log.lines(), Lines(failures, "<error> description is cut: std::bad_alloc"));
}

TEST_F(OsslScardCfgImpMemoryTest, EnvironmentValueThatCannotBeStoredThrows) {
    const EnvVar variable("ossl_scard_cfg_cert_name", new_value);
    bool has_thrown = false;
    for_each_failing_allocation(
        [&] {
            has_thrown = false;
            cfg->set_cert_name("old");
            try {
                load_settings_from_env(*cfg, "ossl_scard_cfg_");
            } catch (const std::bad_alloc&) {
                has_thrown = true;
            }
        },
        [&](bool) { EXPECT_TRUE(has_thrown || cfg->get_cert_name() == new_value); });
}

} // namespace
} // namespace Kes::test
