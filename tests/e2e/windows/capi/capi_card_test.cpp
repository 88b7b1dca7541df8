// End-to-end tests of the capi back-end with the default settings.
#include <algorithm>

#include "capi_client_fixture.h"

namespace Kes::test {
namespace {

const std::string provider_not_acquired = "capi_helper:79 Kes::CapiInit::CapiInit(): CryptAcquireContext() "
                                          "with prov_name=Microsoft Base Smart Card Crypto "
                                          "Provider, key_container_name=nullptr, flags=0xf0000000 failed: ";

class CapiCardTest : public CapiClientTest {
protected:
    /// Whether the loaded certificate is that of the card's key, and the loaded key signs for it.
    ::testing::AssertionResult is_loaded(const std::string& container, unsigned int key_spec) const {
        if (certificate() == nullptr) return ::testing::AssertionFailure() << "no certificate";
        if (der_of(certificate()) != prepared_certificate(container, key_spec))
            return ::testing::AssertionFailure() << "another certificate";
        const std::string problem = signing_problem(key(), certificate(), pkcs1_with_any_sha2);
        if (problem.empty()) return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << problem;
    }
};

TEST_F(CapiCardTest, LoadedSignatureKeySignsForItsCertificate) {
    card.add("sign");
    ASSERT_TRUE(discover());
    EXPECT_FALSE(scard().is_pin_required());
    EXPECT_EQ(key_names(), Lines{"sign (SIGNATURE)"});
    ASSERT_EQ(scard().set_key(std::size_t{0}), 0) << error();
    ASSERT_TRUE(load());
    EXPECT_TRUE(is_loaded("sign", signature));
}

TEST_F(CapiCardTest, LoadedKeyExchangeKeySignsForItsCertificate) {
    card.add("exchange");
    ASSERT_TRUE(discover());
    EXPECT_EQ(key_names(), Lines{"exchange (KEYEXCHANGE)"});
    ASSERT_EQ(scard().set_key(std::size_t{0}), 0) << error();
    ASSERT_TRUE(load());
    EXPECT_TRUE(is_loaded("exchange", key_exchange));
}

TEST_F(CapiCardTest, KeyIsSelectedByTypeAndContainer) {
    card.add("exchange");
    card.add("sign");
    ASSERT_TRUE(discover());
    EXPECT_EQ(key_names(), (Lines{"exchange (KEYEXCHANGE)", "sign (SIGNATURE)"}));
    ASSERT_TRUE(load(key_exchange, "exchange"));
    EXPECT_TRUE(is_loaded("exchange", key_exchange));
}

TEST_F(CapiCardTest, KeyTypeSelectsOneOfTwoKeysInAContainer) {
    card.add("both", "Container 1");
    ASSERT_TRUE(discover());
    EXPECT_EQ(key_names(), (Lines{"Container 1 (KEYEXCHANGE)", "Container 1 (SIGNATURE)"}));
    ASSERT_TRUE(load(key_exchange, "Container 1"));
    EXPECT_TRUE(is_loaded("both", key_exchange));
    ASSERT_EQ(scard().read_scard(), 0) << error();
    ASSERT_EQ(scard().discover_keys(&num_keys), 0) << error();
    ASSERT_EQ(scard().set_key(std::size_t{1}), 0) << error();
    ASSERT_TRUE(load());
    EXPECT_TRUE(is_loaded("both", signature));
}

TEST_F(CapiCardTest, KeyTypeThatTheContainerDoesNotHaveIsNotFound) {
    card.add("sign");
    ASSERT_TRUE(discover());
    EXPECT_EQ(scard().set_key(key_exchange, "sign"), 1);
    EXPECT_EQ(
        error(),
        "ossl_scard_if_imp:263 Kes::OsslScardIfImp::set_key(): specified key not found: val=8 (not_found)");
}

TEST_F(CapiCardTest, PssFailsBecauseTheEngineDoesNotSupportIt) {
    card.add("sign");
    ASSERT_TRUE(discover());
    ASSERT_TRUE(load(signature, "sign"));
    EXPECT_EQ(signing_problem(key(), certificate(), pss), "cannot sign: SHA256, padding 6");
    EXPECT_EQ(queued_errors(), "error:lib:function not supported\n");
    EXPECT_EQ(signing_problem(key(), certificate(), pkcs1), "");
}

TEST_F(CapiCardTest, CardMakesEverySignature) {
    card.add("sign");
    ASSERT_TRUE(discover());
    ASSERT_TRUE(load(signature, "sign"));
    const std::size_t before = card.calls().size();
    EXPECT_EQ(signing_problem(key(), certificate(), pkcs1), "");
    Lines calls = card.calls();
    calls.erase(calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(before));
    EXPECT_EQ(calls, (Lines{"create_hash@sign", "set_hash@sign", "sign@sign", "destroy_hash@sign"}));
}

TEST_F(CapiCardTest, OnlyKeysWhoseCertificatePassesTheFilterAreOffered) {
    card.add("encipher");
    card.add("exchange");
    card.add("sign");
    OsslScardCfg* cfg = make_config();
    cfg->set_kuse_filter_type(1);
    cfg->set_kuse_filter(0x80); // digital signature
    cfg->set_xkuse_filter_type(1);
    cfg->set_xkuse_nid_filter("1.3.6.1.5.5.7.3.2"); // client authentication
    ASSERT_EQ(scard().init(cfg), 0) << error();
    ASSERT_EQ(scard().read_scard(), 0) << error();
    ASSERT_EQ(scard().discover_keys(&num_keys), 0) << error();
    EXPECT_EQ(key_names(), (Lines{"exchange (KEYEXCHANGE)", "sign (SIGNATURE)"}));
}

TEST_F(CapiCardTest, CardWithoutContainersHasNoKeys) {
    ASSERT_TRUE(discover());
    EXPECT_EQ(num_keys, 0U);
    EXPECT_EQ(scard().get_key_name(0), nullptr);
}

TEST_F(CapiCardTest, ManyContainersAreFoundInTheOrderOfTheCard) {
    Lines names;
    for (char letter = 'a'; letter <= 'z'; ++letter) {
        card.add("sign", std::string("container ") + letter);
        names.push_back(std::string("container ") + letter + " (SIGNATURE)");
    }
    ASSERT_TRUE(discover());
    EXPECT_EQ(key_names(), names);
    ASSERT_TRUE(load(signature, "container z"));
    EXPECT_TRUE(is_loaded("sign", signature));
}

TEST_F(CapiCardTest, KeyWithoutCertificateCausesOnlyItsContainerToBeSkipped) {
    log_severity = 63;
    card.add("both");
    card.add("sign");
    card.remove_certificate("both", key_exchange);
    ASSERT_TRUE(discover());
    EXPECT_EQ(key_names(), Lines{"sign (SIGNATURE)"});
    const std::string line =
        "<debug> capi_helper:426 Kes::CapiKeyParamReader::read_len(): CryptGetKeyParam(param=26, "
        "flags=0) failed: " +
        windows_error(0x8010002c);
    const Lines lines = log();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), line), 1);
}

TEST_F(CapiCardTest, InvalidCertificateCausesOnlyItsContainerToBeSkippedWithAWarning) {
    card.add("both");
    card.add("exchange");
    card.add("sign");
    card.replace_certificate("exchange", key_exchange, {'n', 'o', 'n', 'e'});
    ASSERT_TRUE(discover());
    EXPECT_EQ(key_names(), (Lines{"both (KEYEXCHANGE)", "both (SIGNATURE)", "sign (SIGNATURE)"}));
    const std::string line =
        "<warn> skipping container 'exchange': cert_ossl:55 Kes::OsslCert::OsslCert(): error converting "
        "certificate from DER to X509 format: rc=0";
    const Lines lines = log();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), line), 1);
    ASSERT_TRUE(load(signature, "sign"));
    EXPECT_TRUE(is_loaded("sign", signature));
}

TEST_F(CapiCardTest, ContainerWithoutACertificateParameterIsSkippedWithAWarning) {
    card.add("both");
    card.add("sign");
    card.fail("certificate_size@both", bad_type);
    ASSERT_TRUE(discover());
    EXPECT_EQ(key_names(), Lines{"sign (SIGNATURE)"});
    const std::string line =
        "<warn> skipping container 'both': capi_helper:423 Kes::CapiKeyParamReader::read_len(): "
        "CryptGetKeyParam() with param=26, flags=0 is not supported: val=4 (unsupported)";
    const Lines lines = log();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), line), 1);
}

TEST_F(CapiCardTest, MissingCardIsReportedAndCardInsertedLaterIsRead) {
    card.add("sign");
    card.pull_out();
    ASSERT_EQ(scard().init(make_config()), 0) << error();
    EXPECT_EQ(scard().read_scard(), 1);
    EXPECT_EQ(error(), provider_not_acquired + windows_error(0x8010000c));
    card.insert();
    ASSERT_EQ(scard().read_scard(), 0) << error();
    ASSERT_EQ(scard().discover_keys(&num_keys), 0) << error();
    ASSERT_TRUE(load(signature, "sign"));
    EXPECT_TRUE(is_loaded("sign", signature));
}

TEST_F(CapiCardTest, MissingProviderIsReported) {
    OsslScardCfg* cfg = make_config();
    cfg->set_capi_csp_name("No Such Provider");
    ASSERT_EQ(scard().init(cfg), 0) << error();
    EXPECT_EQ(scard().read_scard(), 1);
    EXPECT_EQ(error(),
              "capi_helper:79 Kes::CapiInit::CapiInit(): CryptAcquireContext() with prov_name=No Such "
              "Provider, key_container_name=nullptr, flags=0xf0000000 failed: " +
                  windows_error(0x80090019));
}

TEST_F(CapiCardTest, SigningFailsAfterCardRemoval) {
    card.add("sign");
    ASSERT_TRUE(discover());
    ASSERT_TRUE(load(signature, "sign"));
    card.pull_out();
    EXPECT_EQ(signing_problem(key(), certificate(), pkcs1), "cannot sign: SHA256, padding 1");
    EXPECT_EQ(queued_errors(), "error:lib:can't create hash object\n");
    EXPECT_EQ(scard().read_scard(), 1);
    EXPECT_EQ(error(), provider_not_acquired + windows_error(0x8010000c)); // SCARD_E_NO_SMARTCARD
    card.insert();
    EXPECT_TRUE(is_loaded("sign", signature)); // reading the card does not unload the key
}

TEST_F(CapiCardTest, MissingContainerFailsTheLoad) {
    card.add("sign");
    ASSERT_TRUE(discover());
    scard().get_config_used()->set_priv_key_name("gone");
    EXPECT_FALSE(load());
    EXPECT_EQ(masked_errors(error()),
              "ossl_engine:79 Kes::OsslEngine::read_private_key(): ENGINE_load_private_key() failed: rc=0\n"
              "error:lib:cryptacquirecontext error:Error code= 0x80090016\n"
              "error:engine routines:failed loading private key:");
    EXPECT_EQ(key(), nullptr);
    EXPECT_EQ(certificate(), nullptr);
}

TEST_F(CapiCardTest, LoadAfterUnloadNeedsReadingTheCardAgain) {
    card.add("sign");
    ASSERT_TRUE(discover());
    ASSERT_TRUE(load(signature, "sign"));
    ASSERT_EQ(scard().ossl_unload(), 0) << error();
    EXPECT_EQ(key(), nullptr);
    EXPECT_EQ(certificate(), nullptr);
    EXPECT_EQ(card.unreleased(), Lines());
    ASSERT_EQ(scard().ossl_load(), 0) << error();
    EXPECT_EQ(key(), nullptr);
    ASSERT_EQ(scard().read_scard(), 0) << error();
    ASSERT_EQ(scard().discover_keys(&num_keys), 0) << error();
    ASSERT_TRUE(load(signature, "sign"));
    EXPECT_TRUE(is_loaded("sign", signature));
}

TEST_F(CapiCardTest, SequenceCanBeRepeatedAfterDestroy) {
    card.add("both");
    for (const unsigned int key_spec : {signature, key_exchange, signature}) {
        SCOPED_TRACE(key_spec);
        ASSERT_TRUE(discover());
        ASSERT_TRUE(load(key_spec, "both"));
        EXPECT_TRUE(is_loaded("both", key_spec));
        scard().destroy();
        EXPECT_EQ(card.unreleased(), Lines());
    }
}

TEST_F(CapiCardTest, LoadFailsWithTheReasonWhileTheClientHoldsAnEarlierKey) {
    card.add("sign");
    ASSERT_TRUE(discover());
    ASSERT_TRUE(load(signature, "sign"));
    EVP_PKEY* held = key();
    ASSERT_EQ(::EVP_PKEY_up_ref(held), 1);
    scard().destroy();
    ASSERT_TRUE(discover());
    EXPECT_FALSE(load(signature, "sign"));
    EXPECT_EQ(
        masked_errors(error()),
        "ossl_engine_capi:122 Kes::CapiOsslEngine::CapiOsslEngine(): ENGINE_ctrl_cmd_string(LOAD) "
        "failed: rc=0\n"
        "error:engine routines:init failed:\n"
        "error:engine routines:operation fail:the engine cannot be loaded again: the client still uses a "
        "key that was created during an earlier load");
    ::EVP_PKEY_free(held);
    ASSERT_EQ(scard().ossl_load(), 0) << error();
    EXPECT_TRUE(is_loaded("sign", signature));
}

TEST_F(CapiCardTest, MissingEngineIsReportedAndTheRightOneLoadsAfterwards) {
    card.add("sign");
    ASSERT_TRUE(discover());
    scard().get_config_used()->set_capi_openssl_engine_dll("nowhere\\capi.dll");
    EXPECT_FALSE(load(signature, "sign"));
    EXPECT_EQ(masked_errors(error()),
              "ossl_engine_capi:122 Kes::CapiOsslEngine::CapiOsslEngine(): ENGINE_ctrl_cmd_string(LOAD) "
              "failed: rc=0\n"
              "error:DSO support routines:could not load the shared library:filename(nowhere\\capi.dll)\n"
              "error:DSO support routines:could not load the shared library:\n"
              "error:engine routines:dso not found:\n"
              "error:DSO support routines:system lib:error loading 'nowhere\\capi.dll': " +
                  windows_error(126));
    scard().get_config_used()->set_capi_openssl_engine_dll(".\\capi.dll");
    ASSERT_EQ(scard().ossl_load(), 0) << error();
    EXPECT_TRUE(is_loaded("sign", signature));
}

} // namespace
} // namespace Kes::test
