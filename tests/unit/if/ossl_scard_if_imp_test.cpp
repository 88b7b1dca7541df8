#include "if/ossl_scard_if_imp.h"

#include "support/core_fixture.h"

namespace Kes::test {
namespace {

class OsslScardIfImpTest : public ScardTest {
protected:
    /// Replaces the objects of the token by three certificates with their keys, ids 01 to 03.
    static void put_three_keys_on_token() {
        token().certs.clear();
        token().private_keys.clear();
        for (const auto id : std::initializer_list<unsigned char>{1, 2, 3}) {
            const std::string label = "Key " + std::to_string(id);
            token().certs.push_back({label, {id}, data().client.get()});
            token().private_keys.push_back({label, {id}});
        }
    }

    static std::string used(const char* (OsslScardCfg::*get)() const) {
        return (scard().get_config_used()->*get)();
    }
};

TEST_F(OsslScardIfImpTest, OnlyInterfaceVersionFourIsAccepted) {
    EXPECT_EQ(scard().version_check(4), 0);
    EXPECT_EQ(last_error(), "");
    for (const unsigned int version : {0U, 3U, 5U, 4294967295U}) {
        EXPECT_EQ(scard().version_check(version), 1);
        EXPECT_EQ(last_error(), "interface version incompatibility detected: specified=" +
                                    std::to_string(version) + ", expected=4");
    }
}

TEST_F(OsslScardIfImpTest, ReturnsTheVersionOfTheLibrary) { EXPECT_STREQ(scard().get_version(), "4.3.0"); }

TEST_F(OsslScardIfImpTest, SuccessfulOperationClearsTheErrorText) {
    EXPECT_EQ(scard().read_scard(), 1);
    EXPECT_EQ(last_error(),
              "operation not allowed in current state (cfg_state=uninitialized): val=6 (invalid_state)");
    EXPECT_EQ(last_error(), "operation not allowed in current state (cfg_state=uninitialized): "
                            "val=6 (invalid_state)")
        << "asking changes nothing";
    EXPECT_EQ(scard().version_check(4), 0);
    EXPECT_EQ(last_error(), "");
}

TEST_F(OsslScardIfImpTest, OperationsWithoutAStatusClearTheErrorText) {
    const std::function<void()> operations[] = {
        [] { scard().get_config_default(); }, [] { scard().get_config_used(); },
        [] { scard().is_pin_required(); }, [] { scard().get_version(); }};
    for (const auto& operation : operations) {
        ASSERT_EQ(scard().read_scard(), 1);
        operation();
        EXPECT_EQ(last_error(), "");
    }
}

TEST_F(OsslScardIfImpTest, KeysAreNumberedInTheOrderOfTheList) {
    put_three_keys_on_token();
    go_to(CfgState::configuring);
    std::size_t count = 0;
    EXPECT_EQ(scard().discover_keys(&count), 0);
    EXPECT_EQ(count, 3U);
    EXPECT_STREQ(scard().get_key_name(0), "Token 1: Key 1");
    EXPECT_STREQ(scard().get_key_name(1), "Token 1: Key 2");
    EXPECT_STREQ(scard().get_key_name(2), "Token 1: Key 3");
    EXPECT_EQ(scard().get_key_name(3), nullptr);
    EXPECT_EQ(last_error(), "ossl_scard_if_imp:221 Kes::OsslScardIfImp::get_key_name(): invalid key_num (3): "
                            "val=3 (bad_argument)");
    EXPECT_EQ(scard().get_key_name(static_cast<std::size_t>(-1)), nullptr);
    EXPECT_EQ(last_error(), "ossl_scard_if_imp:221 Kes::OsslScardIfImp::get_key_name(): invalid key_num "
                            "(18446744073709551615): val=3 (bad_argument)");
    EXPECT_EQ(scard().set_key(std::size_t{3}), 1);
    EXPECT_EQ(last_error(), "ossl_scard_if_imp:241 Kes::OsslScardIfImp::set_key(): invalid key_num (3): "
                            "val=3 (bad_argument)");
}

TEST_F(OsslScardIfImpTest, KeyIsSelectedByNumber) {
    put_three_keys_on_token();
    go_to(CfgState::configuring);
    EXPECT_EQ(scard().set_key(std::size_t{1}), 0);
    EXPECT_EQ(used(&OsslScardCfg::get_priv_key_name), "pkcs11:token=Token 1;id=%02;type=private");
    EXPECT_EQ(used(&OsslScardCfg::get_cert_name), "pkcs11:token=Token 1;id=%02;type=cert");
    EXPECT_EQ(scard().get_config_used()->get_capi_key_type(), 0U);
}

TEST_F(OsslScardIfImpTest, KeyIsSelectedByTypeAndIdentifier) {
    put_three_keys_on_token();
    go_to(CfgState::configuring);
    EXPECT_EQ(scard().set_key(0U, "%03"), 0);
    EXPECT_EQ(used(&OsslScardCfg::get_priv_key_name), "pkcs11:token=Token 1;id=%03;type=private");
    EXPECT_EQ(used(&OsslScardCfg::get_cert_name), "pkcs11:token=Token 1;id=%03;type=cert");
    const struct {
        unsigned int type;
        const char* id;
    } wrong[] = {{1U, "%03"}, {0U, "%0"}, {0U, "%03%"}, {0U, ""}, {0U, "%04"}};
    for (const auto& row : wrong) {
        EXPECT_EQ(scard().set_key(row.type, row.id), 1);
        EXPECT_EQ(last_error(),
                  "ossl_scard_if_imp:263 Kes::OsslScardIfImp::set_key(): specified key not found: "
                  "val=8 (not_found)");
    }
    EXPECT_EQ(used(&OsslScardCfg::get_priv_key_name), "pkcs11:token=Token 1;id=%03;type=private");
}

TEST_F(OsslScardIfImpTest, NullArgumentsAreRejected) {
    const std::string bad = " is a null pointer: val=3 (bad_argument)";
    const auto text_of = [](int status) { return outcome(status, last_error()); };
    go_to(CfgState::configuring);
    EXPECT_EQ(text_of(scard().set_pin(nullptr)),
              "1 ossl_scard_if_imp:183 Kes::OsslScardIfImp::set_pin(): pin" + bad);
    EXPECT_EQ(text_of(scard().discover_keys(nullptr)),
              "1 ossl_scard_if_imp:197 Kes::OsslScardIfImp::discover_keys(): num_keys" + bad);
    EXPECT_EQ(text_of(scard().set_key(0U, nullptr)),
              "1 ossl_scard_if_imp:258 Kes::OsslScardIfImp::set_key(): key_id" + bad);
    EXPECT_EQ(text_of(scard().ossl_get_private_key(nullptr)),
              "1 ossl_scard_if_imp:312 Kes::OsslScardIfImp::ossl_get_private_key(): pkey" + bad);
    EXPECT_EQ(text_of(scard().ossl_get_certificate(nullptr)),
              "1 ossl_scard_if_imp:326 Kes::OsslScardIfImp::ossl_get_certificate(): cert" + bad);
    EXPECT_EQ(text_of(scard().select_key_from_console(nullptr)),
              "1 ossl_scard_if_imp:362 Kes::OsslScardIfImp::select_key_from_console(): key_num" + bad);
    EXPECT_EQ(state(), "configuring");
    EXPECT_STREQ(scard().get_key_name(0), "Token 1: Auth key") << "the keys are still there";
}

TEST_F(OsslScardIfImpTest, FailedOperationDoesNotChangeItsOutArguments) {
    std::size_t count = 77;
    EXPECT_EQ(scard().discover_keys(&count), 1);
    EXPECT_EQ(count, 77U);
    go_to(CfgState::configuring);
    script().fail_function("PKCS11_enumerate_public_keys");
    EXPECT_EQ(scard().discover_keys(&count), 1);
    EXPECT_EQ(count, 77U);
}

TEST_F(OsslScardIfImpTest, FailedDiscoveryInvalidatesTheKeyNumbers) {
    go_to(CfgState::configuring);
    ASSERT_NE(scard().get_key_name(0), nullptr);
    script().fail_function("PKCS11_enumerate_public_keys");
    std::size_t count = 0;
    EXPECT_EQ(scard().discover_keys(&count), 1);
    EXPECT_EQ(scard().get_key_name(0), nullptr);
}

TEST_F(OsslScardIfImpTest, DiscoveryInTheWrongStateInvalidatesTheKeyNumbers) {
    go_to(CfgState::configured);
    ASSERT_NE(scard().get_key_name(0), nullptr);
    std::size_t count = 0;
    EXPECT_EQ(scard().discover_keys(&count), 1);
    EXPECT_EQ(scard().get_key_name(0), nullptr);
}

// Reading the card deletes the records that the numbers refer to. The sanitizers report any use of them.
TEST_F(OsslScardIfImpTest, ReadingTheCardInvalidatesTheKeyNumbers) {
    go_to(CfgState::configuring);
    ASSERT_EQ(scard().read_scard(), 0);
    EXPECT_EQ(scard().get_key_name(0), nullptr);
    EXPECT_EQ(last_error(), "ossl_scard_if_imp:221 Kes::OsslScardIfImp::get_key_name(): invalid key_num (0): "
                            "val=3 (bad_argument)");
    EXPECT_EQ(scard().set_key(std::size_t{0}), 1);
    EXPECT_EQ(last_error(), "ossl_scard_if_imp:241 Kes::OsslScardIfImp::set_key(): invalid key_num (0): "
                            "val=3 (bad_argument)");
    EXPECT_EQ(scard().set_key(0U, "%01%ab"), 1);
    EXPECT_EQ(last_error(), "ossl_scard_if_imp:263 Kes::OsslScardIfImp::set_key(): specified key not found: "
                            "val=8 (not_found)");
}

TEST_F(OsslScardIfImpTest, FailedReadingInvalidatesTheKeyNumbers) {
    go_to(CfgState::configuring);
    script().fail_function("PKCS11_enumerate_slots");
    ASSERT_EQ(scard().read_scard(), 1);
    EXPECT_EQ(scard().get_key_name(0), nullptr);
    EXPECT_EQ(scard().set_key(std::size_t{0}), 1);
}

TEST_F(OsslScardIfImpTest, DiscoveryOnAnEmptyTokenSucceedsWithoutKeys) {
    token().certs.clear();
    token().private_keys.clear();
    token().public_keys.clear();
    ASSERT_EQ(scard().init(&make_config()), 0);
    ASSERT_EQ(scard().read_scard(), 0);
    ASSERT_EQ(scard().set_pin("1234"), 0);
    std::size_t count = 77;
    EXPECT_EQ(scard().discover_keys(&count), 0);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(scard().get_key_name(0), nullptr);
}

TEST_F(OsslScardIfImpTest, KeyAndCertificateAreAvailableFromLoadToUnload) {
    go_to(CfgState::configured);
    evp_pkey_st* key = engine().private_key;
    x509_st* cert = engine().certificate;
    EXPECT_EQ(scard().ossl_get_private_key(&key), 0);
    EXPECT_EQ(scard().ossl_get_certificate(&cert), 0);
    EXPECT_EQ(key, nullptr);
    EXPECT_EQ(cert, nullptr);
    ASSERT_EQ(scard().ossl_load(), 0);
    EXPECT_EQ(scard().ossl_get_private_key(&key), 0);
    EXPECT_EQ(scard().ossl_get_certificate(&cert), 0);
    EXPECT_EQ(::EVP_PKEY_eq(key, data().key.get()), 1);
    EXPECT_EQ(::X509_cmp(cert, data().client.get()), 0);
    EXPECT_EQ(::X509_check_private_key(cert, key), 1);
    ASSERT_EQ(scard().ossl_unload(), 0);
    EXPECT_EQ(scard().ossl_get_private_key(&key), 0);
    EXPECT_EQ(scard().ossl_get_certificate(&cert), 0);
    EXPECT_EQ(key, nullptr);
    EXPECT_EQ(cert, nullptr);
}

TEST_F(OsslScardIfImpTest, ClientReferenceToTheKeyOutlivesTheUnload) {
    go_to(CfgState::configured);
    ASSERT_EQ(scard().ossl_load(), 0);
    evp_pkey_st* key = nullptr;
    ASSERT_EQ(scard().ossl_get_private_key(&key), 0);
    ASSERT_EQ(::EVP_PKEY_up_ref(key), 1);
    ASSERT_EQ(scard().ossl_unload(), 0);
    EXPECT_EQ(::EVP_PKEY_eq(key, data().key.get()), 1);
    ::EVP_PKEY_free(key);
}

TEST_F(OsslScardIfImpTest, UnknownExceptionsReturnStatus255) {
    const std::string unhandled = "255 unhandled exception";
    const auto text_of = [](int status) { return outcome(status, last_error()); };
    const Failure thrown{.throws_int = true};
    std::size_t count = 77;

    script().fail_function("PKCS11_CTX_new", thrown);
    EXPECT_EQ(text_of(scard().init(&make_config())), unhandled);
    EXPECT_EQ(state(), "uninitialized");
    script().clear_failures();
    ASSERT_EQ(scard().init(&make_config()), 0);
    script().fail_function("PKCS11_enumerate_slots", thrown);
    EXPECT_EQ(text_of(scard().read_scard()), unhandled);
    EXPECT_EQ(state(), "initialized");
    script().clear_failures();
    ASSERT_EQ(scard().read_scard(), 0);
    ASSERT_EQ(scard().set_pin("1234"), 0);
    script().fail_function("PKCS11_enumerate_certs", thrown);
    EXPECT_EQ(text_of(scard().discover_keys(&count)), unhandled);
    EXPECT_EQ(count, 77U);
    script().clear_failures();
    ASSERT_EQ(scard().discover_keys(&count), 0);
    EXPECT_EQ(last_error(), "");
    ASSERT_EQ(scard().notify_config_done(), 0);
    script().fail_function("ENGINE_by_id", thrown);
    EXPECT_EQ(text_of(scard().ossl_load()), unhandled);
    EXPECT_EQ(state(), "configured");
}

TEST_F(OsslScardIfImpTest, DestroyReleasesEverythingAndTheNextObjectStartsFresh) {
    go_to(CfgState::configuring);
    ASSERT_EQ(scard().init(nullptr), 1);
    scard().destroy();
    EXPECT_FALSE(OsslScardIfImp::exists());
    EXPECT_FALSE(OsslScardMgr::exists());
    EXPECT_EQ(last_error(), "");
    EXPECT_EQ(state(), "uninitialized");
    EXPECT_EQ(scard().get_key_name(0), nullptr);
    EXPECT_EQ(scard().get_config_used()->get_crypto_if(), OsslScardCfg::capi);
}

TEST_F(OsslScardIfImpTest, SameObjectIsReturnedUntilDestroy) {
    EXPECT_EQ(&OsslScardIfImp::instance(), &OsslScardIfImp::instance());
}

TEST_F(OsslScardIfImpTest, NothingLeaksInAHundredLifetimesWithLoginAndLoad) {
    for (int lifetime = 0; lifetime < 100; ++lifetime) {
        set_up_doubles();
        go_to(CfgState::configured);
        ASSERT_EQ(scard().ossl_load(), 0) << last_error();
        scard().destroy();
        ASSERT_EQ(engine().unreleased_engines() + engine().unreleased_objects() +
                      libp11().unreleased_contexts() + libp11().unreleased_slot_arrays(),
                  0U);
        ASSERT_EQ(script().violations(), Lines());
    }
}

} // namespace
} // namespace Kes::test
