#include "scripted_scard.h"

namespace Kes::test {
namespace {

/// "name, id, type" of each key.
Lines texts_of(const std::vector<marvo::Key>& keys) {
    Lines texts;
    for (const marvo::Key& key : keys)
        texts.push_back(key.name + ", " + key.id + ", " + std::to_string(key.type));
    return texts;
}

class SessionKeysTest : public SessionTest {};

TEST_F(SessionKeysTest, KeysOfATokenHaveTheirIdFromTheUri) {
    card.keys = {{"card: login", "pkcs11:token=card;id=%01%ab;type=private", 0},
                 {"card: other", "pkcs11:token=a;id=%09;type=b;id=;type=private", 0}};
    marvo::Session session = open();
    EXPECT_EQ(texts_of(session.find_keys()), (Lines{"card: login, %01%ab, 0", "card: other, , 0"}));
}

TEST_F(SessionKeysTest, KeysOfAProviderHaveTheirContainerAndType) {
    card.cfg.crypto_if = OsslScardCfg::capi;
    card.keys = {{"login (KEYEXCHANGE)", "login", 1}, {"login (SIGNATURE)", "login", 2}};
    marvo::Session session = open();
    EXPECT_EQ(texts_of(session.find_keys()),
              (Lines{"login (KEYEXCHANGE), login, 1", "login (SIGNATURE), login, 2"}));
}

TEST_F(SessionKeysTest, KeysOfAStoreHaveTheirNameAsId) {
    card.cfg.crypto_if = OsslScardCfg::capi_store;
    card.keys = {{"Grace Hopper", "Grace Hopper", 7}};
    marvo::Session session = open();
    EXPECT_EQ(texts_of(session.find_keys()), Lines{"Grace Hopper, Grace Hopper, 0"});
}

TEST_F(SessionKeysTest, CardWithoutKeysGivesAnEmptyList) {
    card.keys.clear();
    marvo::Session session = open();
    EXPECT_EQ(texts_of(session.find_keys()), Lines());
}

TEST_F(SessionKeysTest, SearchKeepsTheSelection) {
    marvo::Session session = open();
    session.find_keys();
    EXPECT_EQ(card.cfg.key_type, 2U);
    EXPECT_EQ(card.cfg.key_name, "key before");
    EXPECT_EQ(card.cfg.cert_name, "certificate before");
}

TEST_F(SessionKeysTest, FailedSearchIsReported) {
    marvo::Session session = open();
    card.fail("discover_keys", "token is not initialized");
    EXPECT_EQ(error_of([&] { session.find_keys(); }), "token is not initialized");
}

TEST_F(SessionKeysTest, MissingNameIsReported) {
    marvo::Session session = open();
    card.fail("get_key_name", "invalid key_num (0)");
    EXPECT_EQ(error_of([&] { session.find_keys(); }), "invalid key_num (0)");
}

TEST_F(SessionKeysTest, KeyThatCannotBeSelectedIsReportedAndTheSelectionIsKept) {
    marvo::Session session = open();
    card.fail("set_key", "no certificate for private key found");
    EXPECT_EQ(error_of([&] { session.find_keys(); }), "no certificate for private key found");
    EXPECT_EQ(card.cfg.key_name, "key before");
}

TEST_F(SessionKeysTest, NameWithoutAnIdIsReported) {
    card.keys = {{"card: login", "pkcs11:token=card;type=private", 0}};
    marvo::Session session = open();
    EXPECT_EQ(error_of([&] { session.find_keys(); }),
              "the name of a key has no id: pkcs11:token=card;type=private");
}

TEST_F(SessionKeysTest, LoadSelectsTheKeyAndReturnsItsObjects) {
    marvo::Session session = open();
    session.load({"card: login", "%01", 0});
    EXPECT_EQ(card.calls, (Lines{"set_key 0 %01", "notify_config_done", "ossl_load", "ossl_get_private_key",
                                 "ossl_get_certificate"}));
    EXPECT_EQ(session.private_key(), card.key.get());
    EXPECT_EQ(session.certificate(), card.cert.get());
}

TEST_F(SessionKeysTest, LoadOfTheConfiguredKeySelectsNone) {
    marvo::Session session = open();
    session.load();
    EXPECT_EQ(card.calls,
              (Lines{"notify_config_done", "ossl_load", "ossl_get_private_key", "ossl_get_certificate"}));
}

TEST_F(SessionKeysTest, EachFailedStepOfTheLoadIsReported) {
    for (const char* step :
         {"set_key", "notify_config_done", "ossl_load", "ossl_get_private_key", "ossl_get_certificate"}) {
        ScriptedScard failing;
        marvo::Session session;
        session.read_card();
        failing.fail(step, std::string("the message of ") + step);
        EXPECT_EQ(error_of([&] { session.load({"", "%01", 0}); }), std::string("the message of ") + step);
        EXPECT_EQ(failing.calls.back().find(step), 0U);
    }
}

// Before, nobody knows whether the card needs a PIN, and a login without one may cost a try.
TEST_F(SessionKeysTest, CardMustBeReadBeforeASearchOrALoad) {
    marvo::Session session;
    card.calls.clear();
    EXPECT_EQ(error_of([&] { session.find_keys(); }), "no card was read");
    EXPECT_EQ(error_of([&] { session.load(); }), "no card was read");
    EXPECT_EQ(error_of([&] { session.load({"", "%01", 0}); }), "no card was read");
    EXPECT_EQ(card.calls, Lines());
}

TEST_F(SessionKeysTest, CardThatCannotBeReadIsNotAskedForKeys) {
    marvo::Session session = open();
    card.fail("read_scard", "PKCS11_find_token() failed");
    EXPECT_EQ(error_of([&] { session.read_card(); }), "PKCS11_find_token() failed");
    EXPECT_EQ(error_of([&] { session.find_keys(); }), "no card was read");
    EXPECT_EQ(error_of([&] { session.load(); }), "no card was read");
    EXPECT_EQ(card.calls, Lines{"read_scard"});
}

TEST_F(SessionKeysTest, UnloadFreesTheKeyOnce) {
    marvo::Session session = open();
    session.load();
    card.calls.clear();
    session.unload();
    session.unload();
    EXPECT_EQ(card.calls, Lines{"ossl_unload"});
    EXPECT_EQ(session.private_key(), nullptr);
    EXPECT_EQ(session.certificate(), nullptr);
}

TEST_F(SessionKeysTest, ReadingTheCardUnloadsTheKey) {
    marvo::Session session = open();
    session.load();
    card.calls.clear();
    session.read_card();
    EXPECT_EQ(card.calls, (Lines{"ossl_unload", "read_scard"}));
    EXPECT_EQ(session.private_key(), nullptr);
}

TEST_F(SessionKeysTest, FailedUnloadIsReported) {
    marvo::Session session = open();
    session.load();
    card.fail("ossl_unload", "operation not allowed in current state");
    EXPECT_EQ(error_of([&] { session.unload(); }), "operation not allowed in current state");
}

TEST_F(SessionKeysTest, EngineThatIsNotLoadedCannotReturnTheDefaultMethods) {
    card.cfg.crypto_if = OsslScardCfg::capi;
    marvo::Session session = open();
    EXPECT_EQ(error_of([&] { session.load(marvo::DefaultMethods::openssl); }),
              "ENGINE_by_id failed: no such engine");
}

} // namespace
} // namespace Kes::test
