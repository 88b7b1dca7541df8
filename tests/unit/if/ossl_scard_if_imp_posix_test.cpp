#include <filesystem>

#include "support/core_fixture.h"

/// Behaviour that differs on Windows.
namespace Kes::test {
namespace {

constexpr const char* capi_only = "crypto interface capi is available on Windows only: val=4 (unsupported)";
constexpr const char* store_only =
    "crypto interface capi_store is available on Windows only: val=4 (unsupported)";

class OsslScardIfImpPosixTest : public ScardTest {
protected:
    static OsslScardMgr& manager() {
        scard(); // creates and owns the manager
        return OsslScardMgr::instance();
    }

    static void choose(OsslScardCfg::CryptoIf crypto_if) {
        manager().get_config_used()->set_crypto_if(crypto_if);
    }

    TempDir dir;
};

TEST_F(OsslScardIfImpPosixTest, FirstOperationThatNeedsAWindowsBackEndIsUnsupported) {
    OsslScardCfg& cfg = make_config();
    cfg.set_crypto_if(OsslScardCfg::capi);
    manager().init(&cfg);
    EXPECT_EQ(error_text([] { manager().read_scard(); }),
              std::string("capi_backend:15 Kes::capi_backend::probe(): ") + capi_only);
    EXPECT_EQ(state(), "initialized");
    choose(OsslScardCfg::capi_store);
    manager().read_scard(); // does not use the store
    EXPECT_EQ(error_text([] { manager().discover_keys(); }),
              std::string("capi_backend:23 Kes::capi_backend::create_store_scanner(): ") + store_only);
    choose(OsslScardCfg::capi);
    EXPECT_EQ(error_text([] { manager().discover_keys(); }),
              std::string("capi_backend:19 Kes::capi_backend::create_scanner(): ") + capi_only);
    manager().notify_config_done();
    EXPECT_EQ(error_text([] { manager().ossl_load(); }),
              std::string("capi_backend:28 Kes::capi_backend::create_engine(): ") + capi_only);
    choose(OsslScardCfg::capi_store);
    EXPECT_EQ(error_text([] { manager().ossl_load(); }),
              std::string("capi_backend:32 Kes::capi_backend::create_store_engine(): ") + store_only);
    EXPECT_EQ(state(), "configured");
}

TEST_F(OsslScardIfImpPosixTest, LogFileNamedWithTwoBlanksIsOpened) {
    const CurrentFolder folder(dir.path());
    OsslScardCfg& cfg = make_config();
    cfg.set_logfile("  ");
    EXPECT_EQ(scard().init(&cfg), 0);
    EXPECT_TRUE(std::filesystem::exists(dir.path() / "  "));
}

TEST_F(OsslScardIfImpPosixTest, NamesOfEnvironmentVariablesAreCaseSensitive) {
    const EnvVar variable("ossl_scard_cfg_PKCS11_MODULE_DLL", "env.so");
    ASSERT_EQ(scard().init(&make_config()), 0);
    EXPECT_STREQ(scard().get_config_used()->get_pkcs11_module_dll(), "module.so");
}

} // namespace
} // namespace Kes::test
