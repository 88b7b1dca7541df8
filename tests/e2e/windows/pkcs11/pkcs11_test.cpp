// The pkcs11 back-end with test doubles of the card's module, libp11 and its engine.
#include "pkcs11_client_fixture.h"

namespace Kes::test {
namespace {

TEST_F(Pkcs11ClientTest, LoadedKeySignsForItsCertificate) {
    ASSERT_TRUE(read());
    EXPECT_TRUE(scard().is_pin_required());
    ASSERT_TRUE(discover());
    EXPECT_EQ(num_keys, 1U);
    EXPECT_STREQ(scard().get_key_name(0), "Card 1: Login");
    ASSERT_TRUE(load());
    EXPECT_EQ(subject(), "/C=AT/O=Test Makers/CN=Rita RSA");
    EXPECT_EQ(signing_problem(key(), certificate()), "");
}

TEST_F(Pkcs11ClientTest, LoadedEcKeySignsForItsCertificate) {
    card.add("02", "ckp", "ec", "Curve");
    ASSERT_TRUE(read());
    ASSERT_TRUE(discover());
    ASSERT_TRUE(load("%02"));
    EXPECT_EQ(subject(), "/C=AT/O=Test Makers/CN=Erik EC");
    EXPECT_EQ(signing_problem(key(), certificate()), "");
}

TEST_F(Pkcs11ClientTest, CardMakesEverySignature) {
    ASSERT_TRUE(read());
    ASSERT_TRUE(discover());
    ASSERT_TRUE(load());
    const std::size_t before = card.steps().size();
    EXPECT_EQ(signing_problem(key(), certificate()), "");
    const Lines signatures{"card.sign(RSA PKCS#1)", "card.sign(RSA PKCS#1)", "card.sign(RSA)",
                           "card.sign(RSA)"};
    EXPECT_EQ(card.calls_after_step(before), signatures);
    card.fail_function("card.sign", 0x30);
    EXPECT_EQ(signing_problem(key(), certificate()), "cannot sign: SHA256, padding 1");
}

TEST_F(Pkcs11ClientTest, KeyIsSelectedByNumberOrById) {
    card.add("0a0b", "ckp", "ec", "Curve");
    ASSERT_TRUE(read());
    ASSERT_TRUE(discover());
    ASSERT_EQ(num_keys, 2U);
    EXPECT_STREQ(scard().get_key_name(1), "Card 1: Curve");
    ASSERT_EQ(scard().set_key(std::size_t{1}), 0) << error();
    EXPECT_STREQ(scard().get_config_used()->get_priv_key_name(),
                 "pkcs11:token=Card 1;id=%0a%0b;type=private");
    ASSERT_EQ(scard().set_key(0U, "%01"), 0) << error();
    EXPECT_STREQ(scard().get_config_used()->get_priv_key_name(), private_uri);
    EXPECT_STREQ(scard().get_config_used()->get_cert_name(), cert_uri);
    ASSERT_EQ(scard().set_key(0U, "%0a%0b"), 0) << error();
    ASSERT_EQ(scard().notify_config_done(), 0);
    ASSERT_EQ(scard().ossl_load(), 0) << error();
    EXPECT_EQ(subject(), "/C=AT/O=Test Makers/CN=Erik EC");
}

TEST_F(Pkcs11ClientTest, UnknownKeyIdIsNotFound) {
    ASSERT_TRUE(read());
    ASSERT_TRUE(discover());
    EXPECT_EQ(scard().set_key(0U, "%02"), 1);
    EXPECT_EQ(error(), "ossl_scard_if_imp:263 Kes::OsslScardIfImp::set_key(): specified key not found: "
                       "val=8 (not_found)");
}

TEST_F(Pkcs11ClientTest, OnlyKeysWhoseCertificatePassesTheFilterAreOffered) {
    card.add("02", "ckp", "encipher", "Cipher");
    card.add("03", "kp", "ec", "Bare");
    OsslScardCfg* cfg = make_config();
    cfg->set_kuse_filter_type(1);
    cfg->set_kuse_filter(0x80); // digital signature
    cfg->set_xkuse_filter_type(1);
    cfg->set_xkuse_nid_filter("1.3.6.1.5.5.7.3.2"); // client authentication
    ASSERT_EQ(scard().init(cfg), 0) << error();
    ASSERT_EQ(scard().read_scard(), 0) << error();
    ASSERT_TRUE(discover());
    EXPECT_EQ(num_keys, 1U);
    EXPECT_STREQ(scard().get_key_name(0), "Card 1: Login");
    EXPECT_EQ(scard().get_key_name(1), nullptr);
}

TEST_F(Pkcs11ClientTest, AnotherKeyIsLoadedAfterReadingTheCardAgain) {
    card.add("02", "ckp", "ec", "Curve");
    ASSERT_TRUE(read());
    ASSERT_TRUE(discover());
    ASSERT_TRUE(load());
    ASSERT_EQ(scard().read_scard(), 0) << error();
    EXPECT_EQ(signing_problem(key(), certificate()), ""); // reading the card does not unload the key
    ASSERT_TRUE(discover());
    ASSERT_TRUE(load("%02"));
    EXPECT_EQ(subject(), "/C=AT/O=Test Makers/CN=Erik EC");
    EXPECT_EQ(signing_problem(key(), certificate()), "");
}

TEST_F(Pkcs11ClientTest, LoadAfterUnloadNeedsReadingTheCardAgain) {
    ASSERT_TRUE(read());
    ASSERT_TRUE(discover());
    ASSERT_TRUE(load());
    ASSERT_EQ(scard().ossl_unload(), 0) << error();
    EXPECT_EQ(key(), nullptr);
    EXPECT_EQ(certificate(), nullptr);
    ASSERT_EQ(scard().ossl_load(), 0) << error();
    EXPECT_EQ(key(), nullptr);
    ASSERT_EQ(scard().read_scard(), 0) << error();
    ASSERT_TRUE(discover());
    ASSERT_TRUE(load());
    EXPECT_EQ(signing_problem(key(), certificate()), "");
}

TEST_F(Pkcs11ClientTest, SequenceCanBeRepeatedAfterDestroy) {
    for (int round = 1; round <= 3; ++round) {
        SCOPED_TRACE(round);
        ASSERT_TRUE(read());
        ASSERT_TRUE(discover());
        ASSERT_TRUE(load());
        EXPECT_EQ(signing_problem(key(), certificate()), "");
        scard().destroy();
        EXPECT_EQ(card.unbalanced(), Lines());
    }
}

TEST_F(Pkcs11ClientTest, WrongPinIsRejectedAfterDestroy) {
    ASSERT_TRUE(read());
    ASSERT_TRUE(discover());
    ASSERT_TRUE(load());
    scard().destroy();
    ASSERT_TRUE(read());
    EXPECT_FALSE(discover("87654321"));
}

TEST_F(Pkcs11ClientTest, EmptyReaderIsReportedAndCardInsertedLaterIsFound) {
    card.pull_out();
    EXPECT_FALSE(read());
    EXPECT_EQ(error(),
              "libp11_helper:140 Kes::Libp11Init::read_scard(): PKCS11_find_token() failed: val=11 (empty)");
    // The library does not release the slots if it finds no token.
    EXPECT_EQ(card.calls_after_step(card.steps().size()), Lines());
    card.insert();
    ASSERT_EQ(scard().read_scard(), 0) << error();
    ASSERT_TRUE(discover());
    ASSERT_TRUE(load());
    EXPECT_EQ(signing_problem(key(), certificate()), "");
    expected_leaks = {"slots1: 1"};
}

TEST_F(Pkcs11ClientTest, LoadFailsAfterCardRemoval) {
    ASSERT_TRUE(read());
    ASSERT_TRUE(discover());
    card.pull_out();
    EXPECT_FALSE(load());
    EXPECT_EQ(masked_error(),
              "ossl_engine:79 Kes::OsslEngine::read_private_key(): ENGINE_load_private_key() failed: rc=0\n"
              "error:pkcs11 engine:object not found:engine.load_privkey\n"
              "error:engine routines:failed loading private key:");
    EXPECT_EQ(key(), nullptr);
}

TEST_F(Pkcs11ClientTest, UninitializedTokenIsRejected) {
    card.set("initialized", "0");
    ASSERT_TRUE(read());
    EXPECT_FALSE(discover());
    EXPECT_EQ(error(), "libp11_helper:209 Kes::Libp11Init::get_token(): token is not initialized: val=10 "
                       "(not_initialized)");
}

TEST_F(Pkcs11ClientTest, CardWithoutLoginNeedsNoPin) {
    card.set("login_required", "0");
    ASSERT_TRUE(read());
    EXPECT_FALSE(scard().is_pin_required());
    ASSERT_EQ(scard().discover_keys(&num_keys), 0) << error();
    ASSERT_TRUE(load());
    EXPECT_EQ(signing_problem(key(), certificate()), "");
}

} // namespace
} // namespace Kes::test
