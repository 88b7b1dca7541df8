#include "manager/ossl_scard_mgr.h"

#include <algorithm>
#include <regex>

#include "support/core_fixture.h"

namespace Kes::test {
namespace {

class OsslScardMgrTest : public ScardTest {
protected:
    static OsslScardMgr& manager() {
        scard(); // creates and owns the manager
        return OsslScardMgr::instance();
    }

    static void choose(unsigned int crypto_if) {
        manager().get_config_used()->set_crypto_if(static_cast<OsslScardCfg::CryptoIf>(crypto_if));
    }

    /// Calls init() with a configuration for the given back-end.
    static void init_with(unsigned int crypto_if) {
        OsslScardCfg& cfg = make_config();
        cfg.set_crypto_if(static_cast<OsslScardCfg::CryptoIf>(crypto_if));
        manager().init(&cfg);
    }

    static const PkoId* first(PkoType type) { return manager().find_first(type); }
};

TEST_F(OsslScardMgrTest, InitCopiesTheConfiguration) {
    OsslScardCfg& cfg = make_config();
    manager().init(&cfg);
    EXPECT_NE(manager().get_config_used(), &cfg);
    cfg.set_pkcs11_module_dll("changed");
    EXPECT_STREQ(manager().get_config_used()->get_pkcs11_module_dll(), "module.so");
}

TEST_F(OsslScardMgrTest, InitAcceptsTheConfigurationInUse) {
    manager().get_config_used()->set_cert_name("a name that needs memory of its own to be stored");
    manager().init(manager().get_config_used());
    EXPECT_STREQ(manager().get_config_used()->get_cert_name(),
                 "a name that needs memory of its own to be stored");
}

TEST_F(OsslScardMgrTest, SecondInitDoesNotChangeTheConfigurationInUse) {
    go_to(CfgState::initialized);
    const OsslScardCfg* used = manager().get_config_used();
    OsslScardCfg& other = make_config();
    other.set_pkcs11_module_dll("other.so");
    EXPECT_EQ(error_text([&] { manager().init(&other); }),
              "operation not allowed in current state (cfg_state=initialized): val=6 (invalid_state)");
    EXPECT_EQ(manager().get_config_used(), used);
    EXPECT_STREQ(used->get_pkcs11_module_dll(), "module.so");
}

TEST_F(OsslScardMgrTest, EnvironmentOverridesTheClientInInitAndInNotifyConfigDone) {
    OsslScardCfg& cfg = make_config();
    {
        const EnvVar module("ossl_scard_cfg_pkcs11_module_dll", "from_env.so");
        manager().init(&cfg);
    }
    EXPECT_EQ(script().calls().back(), "PKCS11_CTX_load(ctx1, from_env.so)");
    const EnvVar name("ossl_scard_cfg_cert_name", "env cert");
    manager().get_config_used()->set_cert_name("client cert");
    manager().notify_config_done();
    EXPECT_STREQ(manager().get_config_used()->get_cert_name(), "env cert");
}

TEST_F(OsslScardMgrTest, EnvironmentCanSelectTheBackEnd) {
    const EnvVar crypto_if("ossl_scard_cfg_crypto_if", "capi_store");
    manager().init(&make_config());
    EXPECT_EQ(script().calls(), Lines());
    EXPECT_EQ(manager().get_config_used()->get_crypto_if(), OsslScardCfg::capi_store);
}

TEST_F(OsslScardMgrTest, EachDefaultConfigurationIsNewAndContainsTheDefaults) {
    manager().get_config_default()->set_cert_name("changed");
    const OsslScardCfg* next = manager().get_config_default();
    EXPECT_STREQ(next->get_cert_name(), "");
    EXPECT_EQ(next->get_crypto_if(), OsslScardCfg::capi);
    EXPECT_STREQ(next->get_pkcs11_module_dll(), "itp11.dll");
}

TEST_F(OsslScardMgrTest, ReadingTheCardClearsTheListAndKeepsTheScanner) {
    go_to(CfgState::configuring);
    EXPECT_FALSE(manager().is_empty());
    manager().read_scard();
    EXPECT_TRUE(manager().is_empty());
    choose(7);
    manager().discover_keys(); // with the scanner of the earlier back-end
    EXPECT_NE(first(PkoType::private_key), nullptr);
}

TEST_F(OsslScardMgrTest, FailedReadingClearsTheListAndThePinRequirement) {
    go_to(CfgState::configuring);
    ASSERT_TRUE(manager().is_pin_required());
    script().fail_function("PKCS11_enumerate_slots");
    EXPECT_ANY_THROW(manager().read_scard());
    EXPECT_TRUE(manager().is_empty());
    EXPECT_FALSE(manager().is_pin_required());
    EXPECT_EQ(state(), "configuring");
    EXPECT_EQ(error_text([] { manager().discover_keys(); }),
              "libp11_helper:203 Kes::Libp11Init::get_token(): no token has been read: val=11 (empty)");
}

TEST_F(OsslScardMgrTest, FailedReadingDoesNotChangeTheState) {
    for (const auto before : {CfgState::initialized, CfgState::configuring, CfgState::configured}) {
        set_up_doubles();
        go_to(before);
        script().fail_function("PKCS11_enumerate_slots");
        EXPECT_EQ(error_text([] { manager().read_scard(); }),
                  "libp11_helper:133 Kes::Libp11Init::read_scard(): PKCS11_enumerate_slots() failed: rc=7" +
                      raised_by("PKCS11_enumerate_slots"));
        EXPECT_EQ(state(), cfg_state_name(before));
        EXPECT_EQ(scard().read_scard(), 1);
        EXPECT_EQ(state(), cfg_state_name(before));
        script().clear_failures();
        EXPECT_EQ(scard().read_scard(), 0);
        EXPECT_EQ(state(), "configuring");
        scard().destroy();
    }
}

TEST_F(OsslScardMgrTest, TokenWithoutLoginClearsTheStoredPin) {
    go_to(CfgState::configuring);
    token().loginRequired = 0;
    manager().read_scard();
    EXPECT_FALSE(manager().is_pin_required());
    token().loginRequired = 1;
    libp11().is_logged_in = false;
    manager().read_scard();
    EXPECT_EQ(error_text([] { manager().discover_keys(); }),
              "libp11_helper:185 Kes::Libp11Init::authenticate(): no PIN specified: val=11 (empty)");
}

TEST_F(OsslScardMgrTest, TokenWithLoginKeepsTheStoredPin) {
    go_to(CfgState::configuring);
    libp11().is_logged_in = false;
    manager().read_scard();
    manager().discover_keys();
    EXPECT_THAT(script().calls(), testing::Contains("PKCS11_login(slot2.1, user, right pin)"));
}

/// The slot arrays that the next calls release, in order, such as "slots1".
class SlotReleaseTest : public OsslScardMgrTest {
protected:
    static Lines released_slots() {
        static const std::regex release(R"(PKCS11_release_all_slots\(ctx1, (.*), 1\))");
        Lines released;
        std::smatch match;
        for (const std::string& call : script().take_calls())
            if (std::regex_match(call, match, release)) released.push_back(match[1]);
        return released;
    }
};

TEST_F(SlotReleaseTest, BeforeALoginEachReadingReleasesTheSlotsOfTheEarlierOne) {
    go_to(CfgState::initialized);
    manager().read_scard();
    EXPECT_EQ(released_slots(), Lines());
    manager().read_scard();
    EXPECT_EQ(released_slots(), Lines{"slots1"});
    manager().set_pin("0000");
    EXPECT_THROW(manager().discover_keys(), OsslError);
    manager().read_scard();
    EXPECT_EQ(released_slots(), Lines{"slots2"}) << "a failed login is none";
    scard().destroy();
    EXPECT_EQ(released_slots(), Lines{"slots3"});
}

TEST_F(SlotReleaseTest, WithoutARequiredLoginEachReadingReleasesTheSlotsOfTheEarlierOne) {
    token().loginRequired = 0;
    go_to(CfgState::initialized);
    for (const Lines& released : {Lines(), Lines{"slots1"}, Lines{"slots2"}}) {
        manager().read_scard();
        manager().discover_keys();
        EXPECT_EQ(released_slots(), released);
    }
}

TEST_F(SlotReleaseTest, AfterALoginTheSlotsAreKeptUntilTheModuleIsUnloaded) {
    go_to(CfgState::configuring); // with a login
    script().take_calls();
    manager().read_scard();
    manager().discover_keys();
    manager().read_scard();
    EXPECT_EQ(released_slots(), Lines());
    scard().destroy();
    EXPECT_EQ(script().calls().back(), "PKCS11_CTX_free(ctx1)");
    EXPECT_EQ(released_slots(), (Lines{"slots3", "slots1", "slots2"}));
}

TEST_F(SlotReleaseTest, AfterALoadTheSlotsAreKeptUntilTheModuleIsUnloaded) {
    token().loginRequired = 0;
    go_to(CfgState::configured);
    manager().ossl_load();
    script().take_calls();
    manager().read_scard();
    manager().read_scard();
    EXPECT_EQ(released_slots(), Lines());
    scard().destroy();
    EXPECT_EQ(script().calls().back(), "PKCS11_CTX_free(ctx1)");
    EXPECT_EQ(released_slots(), (Lines{"slots3", "slots1", "slots2"}));
}

TEST_F(OsslScardMgrTest, FilterOfTheConfigurationSelectsTheKeys) {
    go_to(CfgState::configuring);
    OsslScardCfg& cfg = *manager().get_config_used();
    cfg.set_kuse_filter_type(1);
    cfg.set_kuse_filter(0x100);
    manager().discover_keys();
    EXPECT_EQ(first(PkoType::private_key), nullptr);
    EXPECT_NE(first(PkoType::certificate), nullptr);
    cfg.set_kuse_filter(0x80);
    manager().discover_keys();
    EXPECT_NE(first(PkoType::private_key), nullptr);
    cfg.set_xkuse_filter_type(1);
    cfg.set_xkuse_nid_filter("1.2.3");
    manager().discover_keys();
    EXPECT_EQ(first(PkoType::private_key), nullptr);
    cfg.set_xkuse_nid_filter("1.3.6.1.5.5.7.3.4");
    manager().discover_keys();
    EXPECT_NE(first(PkoType::private_key), nullptr);
}

TEST_F(OsslScardMgrTest, NullRecordsAreRejectedByEachSetter) {
    go_to(CfgState::configuring);
    const std::string refused = ": pko_id is a null pointer: val=3 (bad_argument)";
    EXPECT_EQ(error_text([] { manager().set_key_type(nullptr); }),
              "ossl_scard_mgr:223 Kes::OsslScardMgr::set_key_type()" + refused);
    EXPECT_EQ(error_text([] { manager().set_priv_key_name(nullptr); }),
              "ossl_scard_mgr:248 Kes::OsslScardMgr::set_priv_key_name()" + refused);
    EXPECT_EQ(error_text([] { manager().set_cert_name_from_priv_key(nullptr); }),
              "ossl_scard_mgr:301 Kes::OsslScardMgr::set_cert_name_from_priv_key()" + refused);
}

TEST_F(OsslScardMgrTest, NamesAreTakenOnlyFromPrivateKeysButTheKeyTypeFromAnyRecord) {
    go_to(CfgState::configuring);
    for (const auto type : {PkoType::certificate, PkoType::public_key}) {
        const PkoId* other = first(type);
        EXPECT_EQ(error_text([&] { manager().set_priv_key_name(other); }),
                  "ossl_scard_mgr:250 Kes::OsslScardMgr::set_priv_key_name(): pko_id is not a private key: "
                  "val=3 (bad_argument)");
        EXPECT_EQ(
            error_text([&] { manager().set_cert_name_from_priv_key(other); }),
            "ossl_scard_mgr:303 Kes::OsslScardMgr::set_cert_name_from_priv_key(): pko_id is not a private "
            "key: val=3 (bad_argument)");
    }
    const PkoId cert{PkoType::certificate, 77, "n", "c", "d", nullptr};
    manager().set_key_type(&cert);
    EXPECT_EQ(manager().get_config_used()->get_capi_key_type(), 77U);
}

TEST_F(OsslScardMgrTest, KeyWithoutItsCertificateInTheListIsNotFound) {
    go_to(CfgState::configuring);
    const PkoId unknown_key{PkoType::private_key, 0, "n", "%01", "d", nullptr};
    const PkoId of_other_type{PkoType::private_key, 1, "n", "%01%ab", "d", nullptr};
    for (const PkoId* key : {&unknown_key, &of_other_type})
        EXPECT_EQ(error_text([&] { manager().set_cert_name_from_priv_key(key); }),
                  "ossl_scard_mgr:307 Kes::OsslScardMgr::set_cert_name_from_priv_key(): no certificate for "
                  "private key found: val=8 (not_found)");
    EXPECT_STREQ(manager().get_config_used()->get_cert_name(), "");
}

TEST_F(OsslScardMgrTest, Pkcs11BackEndSelectedAfterInitIsRejectedAtEachUse) {
    init_with(3);
    choose(2);
    const std::string refused = "ossl_scard_mgr:418 Kes::OsslScardMgr::require_libp11(): crypto interface "
                                "pkcs11 was chosen after init(): val=10 (not_initialized)";
    EXPECT_EQ(error_text([] { manager().read_scard(); }), refused);
    EXPECT_EQ(state(), "initialized");
    choose(3);
    manager().read_scard();
    choose(2);
    EXPECT_EQ(error_text([] { manager().discover_keys(); }), refused);
    EXPECT_EQ(script().calls(), Lines());
}

TEST_F(OsslScardMgrTest, UnknownBackEndFailsToDiscoverAndToLoad) {
    for (const unsigned int unknown : {0U, 7U}) {
        init_with(unknown);
        manager().read_scard();
        EXPECT_FALSE(manager().is_pin_required());
        EXPECT_EQ(error_text([] { manager().discover_keys(); }),
                  "pko_id_list:86 Kes::PkoIdList::scan(): no scanner registered: val=9 (not_registered)");
        EXPECT_EQ(state(), "configuring");
        manager().notify_config_done();
        EXPECT_EQ(error_text([] { manager().ossl_load(); }),
                  "ossl_scard_mgr:372 Kes::OsslScardMgr::ossl_load(): openssl engine not created: "
                  "val=6 (invalid_state)");
        EXPECT_EQ(state(), "configured");
        EXPECT_EQ(script().calls(), Lines());
        scard().destroy();
    }
}

TEST_F(OsslScardMgrTest, RepeatedLoadDoesNothing) {
    go_to(CfgState::configured);
    manager().ossl_load();
    const EVP_PKEY* key = manager().get_private_key();
    const X509* cert = manager().get_certificate();
    EXPECT_NE(key, nullptr);
    EXPECT_NE(cert, nullptr);
    script().take_calls();
    manager().ossl_load();
    EXPECT_EQ(script().calls(), Lines());
    EXPECT_EQ(manager().get_private_key(), key);
    EXPECT_EQ(manager().get_certificate(), cert);
}

TEST_F(OsslScardMgrTest, LoadAfterAnUnloadLoadsNothing) {
    go_to(CfgState::configured);
    manager().ossl_unload();
    manager().ossl_load();
    manager().ossl_unload();
    script().take_calls();
    manager().ossl_unload();
    manager().ossl_load();
    EXPECT_EQ(script().calls(), Lines());
    EXPECT_EQ(manager().get_private_key(), nullptr);
    EXPECT_EQ(manager().get_certificate(), nullptr);
}

TEST_F(OsslScardMgrTest, NextLoadFreesTheOldKeyAndReusesTheEngine) {
    go_to(CfgState::configured);
    manager().ossl_load();
    read_and_discover();
    ASSERT_EQ(scard().set_key(0), 0);
    manager().get_config_used()->set_pkcs11_openssl_engine_dll("./another.so");
    manager().notify_config_done();
    EXPECT_NE(manager().get_private_key(), nullptr) << "until the load";
    script().take_calls();
    manager().ossl_load();
    EXPECT_EQ(script().calls(),
              (Lines{"X509_free(cert1)", "EVP_PKEY_free(lent1)", "EVP_PKEY_free(key1)",
                     "ENGINE_ctrl_cmd_string(engine1, PIN, right pin)",
                     std::string("ENGINE_load_private_key(engine1, ") + private_uri + ")",
                     std::string("ENGINE_ctrl_cmd(engine1, LOAD_CERT_CTRL, ") + cert_uri + ")",
                     "X509_NAME_print_ex()", "X509_NAME_print_ex()"}));
}

TEST_F(OsslScardMgrTest, FailedPrintOfTheCertificateFreesTheKeyAndKeepsTheCertificate) {
    go_to(CfgState::configured);
    script().fail_function("X509_NAME_print_ex", {.rc = 0});
    EXPECT_EQ(error_text([] { manager().ossl_load(); }),
              "ossl_helper:123 Kes::OsslHelper::cert_name_to_str(): X509_NAME_print_ex() failed: rc=0");
    EXPECT_EQ(manager().get_private_key(), nullptr);
    EXPECT_NE(manager().get_certificate(), nullptr);
}

TEST_F(OsslScardMgrTest, FailedLoadThrowsTheCommonErrorType) {
    go_to(CfgState::configured);
    script().fail_function("ENGINE_load_private_key");
    try {
        manager().ossl_load();
        FAIL();
    } catch (const std::exception& error) {
        EXPECT_EQ(typeid(error), typeid(ErrorBase));
    }
}

TEST_F(OsslScardMgrTest, LoadPropagatesOtherExceptionsAndCanBeRepeated) {
    go_to(CfgState::configured);
    script().fail_function("ENGINE_ctrl_cmd", {.throws_int = true});
    EXPECT_THROW(manager().ossl_load(), int);
    script().clear_failures();
    manager().ossl_load(); // the load is still pending and frees the remaining key
    EXPECT_NE(manager().get_certificate(), nullptr);
}

TEST_F(OsslScardMgrTest, LoadWithoutThePinForARequiredLoginPassesTheEmptyPinToTheEngine) {
    OsslScardCfg& cfg = make_config();
    manager().init(&cfg);
    manager().read_scard();
    ASSERT_TRUE(manager().is_pin_required());
    manager().notify_config_done();
    script().take_calls();
    manager().ossl_load(); // the test double of the engine needs no login
    const Lines calls = script().calls();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "ENGINE_ctrl_cmd_string(engine1, PIN, empty pin)"), 2)
        << "when the engine is created, and before the key is read";
    EXPECT_THAT(calls, testing::Not(testing::Contains(testing::HasSubstr("PKCS11_"))));
    EXPECT_NE(manager().get_private_key(), nullptr);
}

TEST_F(OsslScardMgrTest, LoadWithoutASelectedKeyPassesEmptyNamesToTheEngine) {
    go_to(CfgState::initialized);
    manager().notify_config_done();
    manager().ossl_load();
    EXPECT_THAT(script().calls(), testing::Contains("ENGINE_load_private_key(engine1, )"));
    EXPECT_THAT(script().calls(), testing::Contains("ENGINE_ctrl_cmd_string(engine1, PIN, empty pin)"));
}

TEST_F(OsslScardMgrTest, FailedReadingKeepsTheStoredPin) {
    go_to(CfgState::configuring);
    libp11().is_logged_in = false;
    for (const char* function : {"PKCS11_enumerate_slots", "PKCS11_find_token"}) {
        script().fail_function(function);
        EXPECT_ANY_THROW(manager().read_scard());
        script().clear_failures();
    }
    expected_slot_arrays = 1; // of the reading that found no token
    manager().read_scard();
    script().take_calls();
    manager().discover_keys();
    EXPECT_THAT(script().calls(), testing::Contains(testing::AllOf(testing::StartsWith("PKCS11_login("),
                                                                   testing::EndsWith(", user, right pin)"))));
}

TEST_F(OsslScardMgrTest, ListIsKeptWhenNoScannerCanBeCreated) {
    init_with(3);
    manager().read_scard();
    const PkoId* record = manager().add(PkoType::private_key, 0, "name", "cluster", "display", nullptr);
    choose(2); // without libp11, which only init() loads
    EXPECT_EQ(error_text([] { manager().discover_keys(); }),
              "ossl_scard_mgr:418 Kes::OsslScardMgr::require_libp11(): crypto interface pkcs11 was chosen "
              "after init(): val=10 (not_initialized)");
    EXPECT_EQ(first(PkoType::private_key), record);
    EXPECT_EQ(manager().find_next(PkoType::private_key, record), nullptr);
}

} // namespace
} // namespace Kes::test
