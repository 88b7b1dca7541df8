// End-to-end tests of the capi_store back-end with the default settings: the current user's store "MY".
#include <gmock/gmock.h>
#include <utility>

#include "capi_client_fixture.h"
#include "support/system_store.h"

namespace Kes::test {
namespace {

constexpr const char* software_container = "marvo-test-key";

/// Uses the store "MY". All tests share it and must not run at the same time.
class MyStoreTest : public CapiClientTest {
protected:
    MyStoreTest() { crypto_if = OsslScardCfg::capi_store; }

    ~MyStoreTest() override {
        store.remove();
        delete_software_key(software_container);
    }

    void add_with_software_key(const std::string& prepared, unsigned int key_spec) {
        import_software_key(software_container, key_spec, prepared_key(prepared, key_spec));
        const KeyPlace place = in_software(software_container, key_spec);
        store.add(prepared_certificate(prepared, key_spec), &place);
    }

    void add_with_card_key(const std::string& prepared, unsigned int key_spec) {
        card.add(prepared);
        const KeyPlace place = on_card(prepared, key_spec);
        store.add(prepared_certificate(prepared, key_spec), &place);
    }

    SystemStore store{"MY"};
};

struct Key {
    const char* prepared;
    unsigned int key_spec;
    const char* name;
};

void PrintTo(const Key& key, std::ostream* out) { *out << key.prepared; }

std::string name_of(const ::testing::TestParamInfo<Key>& key) { return key.param.prepared; }

class MyStoreKeyTest : public MyStoreTest, public ::testing::WithParamInterface<Key> {
protected:
    void expect_key_of_store() {
        const Key& key = GetParam();
        ASSERT_TRUE(discover());
        EXPECT_EQ(key_names(), Lines{key.name});
        ASSERT_EQ(scard().set_key(std::size_t{0}), 0) << error();
        ASSERT_TRUE(load());
        EXPECT_EQ(der_of(certificate()), prepared_certificate(key.prepared, key.key_spec));
        EXPECT_EQ(signing_problem(CapiClientTest::key(), certificate(), pkcs1_with_any_sha2), "");
    }
};

INSTANTIATE_TEST_SUITE_P(Keys, MyStoreKeyTest,
                         ::testing::Values(Key{"sign", signature, "AT, Test Makers, Sigrid Signature"},
                                           Key{"exchange", key_exchange, "AT, Test Makers, Egon Exchange"}),
                         name_of);

TEST_P(MyStoreKeyTest, KeyInSoftwareSigns) {
    add_with_software_key(GetParam().prepared, GetParam().key_spec);
    expect_key_of_store();
    EXPECT_EQ(card.calls(), Lines()); // the key in software needs no card
}

TEST_P(MyStoreKeyTest, KeyOnTheCardSigns) {
    add_with_card_key(GetParam().prepared, GetParam().key_spec);
    expect_key_of_store();
    EXPECT_THAT(card.calls(), ::testing::Contains(std::string("sign@") + GetParam().prepared));
}

TEST_F(MyStoreTest, KeyIsSelectedByTypeZeroAndItsSubject) {
    add_with_card_key("sign", signature);
    add_with_card_key("exchange", key_exchange);
    ASSERT_TRUE(discover());
    EXPECT_THAT(key_names(), ::testing::UnorderedElementsAre("AT, Test Makers, Sigrid Signature",
                                                             "AT, Test Makers, Egon Exchange"));
    ASSERT_TRUE(load(0, "AT, Test Makers, Egon Exchange"));
    EXPECT_EQ(der_of(certificate()), prepared_certificate("exchange", key_exchange));
    EXPECT_EQ(signing_problem(key(), certificate(), pkcs1_with_any_sha2), "");
}

TEST_F(MyStoreTest, NameWithQuotesCommasAndNonAsciiLettersIsFound) {
    add_with_card_key("odd", signature);
    ASSERT_TRUE(discover());
    ASSERT_EQ(num_keys, 1U);
    EXPECT_THAT(scard().get_key_name(0), ::testing::StartsWith("\"Makers, Sons + Co\", \"J"));
    ASSERT_EQ(scard().set_key(std::size_t{0}), 0) << error();
    ASSERT_TRUE(load());
    EXPECT_EQ(der_of(certificate()), prepared_certificate("odd", signature));
    EXPECT_EQ(signing_problem(key(), certificate(), pkcs1_with_any_sha2), "");
}

TEST_F(MyStoreTest, PssFailsBecauseTheEngineDoesNotSupportIt) {
    add_with_software_key("sign", signature);
    ASSERT_TRUE(discover());
    ASSERT_TRUE(load(0, "AT, Test Makers, Sigrid Signature"));
    EXPECT_EQ(signing_problem(key(), certificate(), pss), "cannot sign: SHA256, padding 6");
    EXPECT_EQ(queued_errors(), "error:lib:function not supported\n");
}

TEST_F(MyStoreTest, StoreWithoutCertificatesHasNoKeys) {
    ASSERT_TRUE(discover());
    EXPECT_EQ(num_keys, 0U);
    EXPECT_THAT(log(), ::testing::Contains("<warn> no certificate found in store MY"));
}

TEST_F(MyStoreTest, MissingStoreIsReported) {
    store.remove();
    EXPECT_FALSE(discover());
    EXPECT_EQ(
        error(),
        "certstore_win:61 Kes::WinCertStoreImp::WinCertStoreImp(): CertOpenStore() with name=MY failed: " +
            windows_error(2));
}

TEST_F(MyStoreTest, CertificateWithoutKeyIsOfferedButCannotBeLoaded) {
    store.add(prepared_certificate("plain"));
    ASSERT_TRUE(discover());
    EXPECT_EQ(key_names(), Lines{"Paul Plain"});
    EXPECT_FALSE(load(0, "Paul Plain"));
    EXPECT_EQ(masked_errors(error()),
              "ossl_engine:79 Kes::OsslEngine::read_private_key(): ENGINE_load_private_key() failed: rc=0\n"
              "error:engine routines:failed loading private key:");
    EXPECT_EQ(key(), nullptr);
    EXPECT_EQ(certificate(), nullptr);
}

TEST_F(MyStoreTest, KeyCannotBeLoadedUntilItsCardIsInserted) {
    add_with_card_key("sign", signature);
    card.pull_out();
    ASSERT_TRUE(discover()); // needs no card: the certificates are in the store
    EXPECT_FALSE(load(0, "AT, Test Makers, Sigrid Signature"));
    EXPECT_EQ(masked_errors(error()),
              "ossl_engine:79 Kes::OsslEngine::read_private_key(): ENGINE_load_private_key() failed: rc=0\n"
              "error:lib:cryptacquirecontext error:Error code= 0x8010000C\n"
              "error:engine routines:failed loading private key:");
    card.insert();
    ASSERT_EQ(scard().ossl_load(), 0) << error();
    EXPECT_EQ(signing_problem(key(), certificate(), pkcs1_with_any_sha2), "");
}

TEST_F(MyStoreTest, EachCardFailureDuringLoadIsReportedAndTheNextLoadWorks) {
    add_with_card_key("sign", signature);
    ASSERT_TRUE(discover());
    ASSERT_EQ(scard().set_key(std::size_t{0}), 0) << error();
    ASSERT_EQ(scard().notify_config_done(), 0) << error();
    const std::pair<const char*, const char*> failures[] = {
        {"acquire@sign", "cryptacquirecontext error"},
        {"user_key_2@sign", "getuserkey error"},
        {"export_size@sign", "pubkey export length error"},
        {"export@sign", "pubkey export error"},
    };
    for (const auto& [call, reason] : failures) {
        card.fail(call, 0x80100069); // SCARD_W_REMOVED_CARD
        EXPECT_EQ(scard().ossl_load(), 1) << call;
        EXPECT_EQ(
            masked_errors(error()),
            std::string(
                "ossl_engine:79 Kes::OsslEngine::read_private_key(): ENGINE_load_private_key() failed: rc=0\n"
                "error:lib:") +
                reason + ":Error code= 0x80100069\nerror:engine routines:failed loading private key:");
        EXPECT_EQ(card.unreleased(), Lines()) << call;
        card.clear_failures();
    }
    ASSERT_EQ(scard().ossl_load(), 0) << error();
    EXPECT_EQ(signing_problem(key(), certificate(), pkcs1_with_any_sha2), "");
}

TEST_F(MyStoreTest, UnknownSubjectNameIsNotFound) {
    add_with_card_key("sign", signature);
    ASSERT_TRUE(discover());
    ASSERT_EQ(scard().set_key(std::size_t{0}), 0) << error();
    scard().get_config_used()->set_cert_name("nobody");
    EXPECT_FALSE(load());
    EXPECT_EQ(masked_errors(error()),
              "ossl_engine_capi_store:236 Kes::CapiStoreOsslEngine::read_certificate(): "
              "error finding certificate with "
              "subject name='nobody': rc=0");
    EXPECT_EQ(key(), nullptr);
}

TEST_F(MyStoreTest, OnlyCertificatesThatPassTheFilterAreOffered) {
    store.add({prepared_certificate("encipher", key_exchange), prepared_certificate("plain")});
    OsslScardCfg* cfg = make_config();
    cfg->set_kuse_filter_type(1);
    cfg->set_kuse_filter(0x80); // digital signature
    ASSERT_EQ(scard().init(cfg), 0) << error();
    ASSERT_EQ(scard().read_scard(), 0) << error();
    ASSERT_EQ(scard().discover_keys(&num_keys), 0) << error();
    EXPECT_EQ(key_names(), Lines{"Paul Plain"});
    EXPECT_THAT(log(), ::testing::Contains("<info> found 2 certs in store MY"));
}

TEST_F(MyStoreTest, SequenceCanBeRepeatedAfterUnloadAndAfterDestroy) {
    add_with_card_key("sign", signature);
    for (int round = 1; round <= 3; ++round) {
        SCOPED_TRACE(round);
        ASSERT_TRUE(discover());
        ASSERT_TRUE(load(0, "AT, Test Makers, Sigrid Signature"));
        ASSERT_EQ(scard().ossl_unload(), 0) << error();
        EXPECT_EQ(key(), nullptr);
        ASSERT_EQ(scard().read_scard(), 0) << error();
        ASSERT_EQ(scard().discover_keys(&num_keys), 0) << error();
        ASSERT_TRUE(load(0, "AT, Test Makers, Sigrid Signature"));
        EXPECT_EQ(signing_problem(key(), certificate(), pkcs1_with_any_sha2), "");
        scard().destroy();
        EXPECT_EQ(card.unreleased(), Lines());
    }
}

TEST_F(MyStoreTest, ClientCanSwitchFromCapiToCapiStoreAfterDestroy) {
    add_with_card_key("sign", signature);
    crypto_if = OsslScardCfg::capi;
    ASSERT_TRUE(discover());
    ASSERT_TRUE(load(signature, "sign"));
    scard().destroy();
    crypto_if = OsslScardCfg::capi_store;
    ASSERT_TRUE(discover());
    ASSERT_TRUE(load(0, "AT, Test Makers, Sigrid Signature"));
    EXPECT_EQ(signing_problem(key(), certificate(), pkcs1_with_any_sha2), "");
}

} // namespace
} // namespace Kes::test
