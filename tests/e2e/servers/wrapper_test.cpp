// The wrapper for C++17 with the library itself, a soft token and nginx.
#include <gtest/gtest.h>

#include "card.h"
#include "login.h"
#include "marvo/marvo.hpp"
#include "server.h"
#include "support/software_keys.h"

namespace Kes::test {
namespace {

class WrapperTest : public testing::Test {
protected:
    marvo::Session open() const {
        const CardAccess access = card_.access();
        marvo::Session session([&](OsslScardCfg& cfg) {
            cfg.set_crypto_if(OsslScardCfg::pkcs11);
            cfg.set_pkcs11_module_dll(access.module.c_str());
            cfg.set_pkcs11_openssl_engine_dll(soft_token({"engine"}).c_str());
            cfg.set_logfile(access.log_file.c_str());
        });
        session.read_card();
        return session;
    }

    static void set_pin(marvo::Session& session, const std::string& pin) {
        char copy[16] = "";
        pin.copy(copy, sizeof copy);
        session.set_pin(copy);
    }

    marvo::Session load(marvo::DefaultMethods methods = marvo::DefaultMethods::engine) const {
        marvo::Session session = open();
        set_pin(session, card_.pin());
        session.load(session.find_keys().at(0), methods);
        return session;
    }

    /// Makes a key in software, as any code of the process might.
    static bool can_make_ec_key() {
        const EvpPkeyPtr key(EVP_EC_gen("P-256"));
        return key != nullptr;
    }

    Card card_{"ec:P-256", "/CN=Grace Hopper", {"--ku", "digitalSignature", "--eku", "clientAuth"}};
};

TEST_F(WrapperTest, KeyHasTheNameIdAndTypeThatSelectIt) {
    marvo::Session session = open();
    EXPECT_TRUE(session.is_pin_required());
    set_pin(session, card_.pin());
    const std::vector<marvo::Key> keys = session.find_keys();
    ASSERT_EQ(keys.size(), 1U);
    EXPECT_EQ(keys[0].name, "card: login");
    EXPECT_EQ(keys[0].id, "%01");
    EXPECT_EQ(keys[0].type, 0U);
    session.load({"", "%01", 0});
    EXPECT_NE(session.private_key(), nullptr);
}

TEST_F(WrapperTest, LoadReturnsTheDatesAndUsagesOfTheCertificate) {
    marvo::Session session = open();
    set_pin(session, card_.pin());
    const marvo::Certificate certificate = session.load(session.find_keys().at(0));
    EXPECT_EQ(certificate.subject, "CN=Grace Hopper");
    EXPECT_EQ(certificate.issuer, "CN=Soft token CA,O=Throw-away");
    EXPECT_TRUE(certificate.is_valid_at(std::time(nullptr)));
    EXPECT_EQ(certificate.key_usage, std::uint32_t{KU_DIGITAL_SIGNATURE});
    EXPECT_EQ(certificate.ext_key_usage, std::uint32_t{XKU_SSL_CLIENT});
    EXPECT_TRUE(certificate.is_meant_for_clients);
}

TEST_F(WrapperTest, WrongPinIsReportedAndNotRepeatedAndTheRightOneWorksAfterwards) {
    marvo::Session session = open();
    set_pin(session, "000000");
    try {
        session.find_keys();
        FAIL() << "the wrong PIN was accepted";
    } catch (const marvo::Error& error) {
        EXPECT_NE(std::string(error.what()).find("PIN incorrect"), std::string::npos) << error.what();
    }
    EXPECT_THROW(session.find_keys(), marvo::Error);
    const std::string log = read_file(card_.access().log_file);
    EXPECT_EQ(log.find("PIN incorrect"), log.rfind("PIN incorrect"));
    set_pin(session, card_.pin());
    EXPECT_EQ(session.find_keys().size(), 1U);
}

TEST_F(WrapperTest, SessionsLogInOneAfterTheOther) {
    const auto server = create_server("nginx", card_.server_setup());
    for (int i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        const marvo::Session session = load();
        LoginOptions options;
        options.port = server->port();
        options.protocol = TLS1_3_VERSION;
        options.ca_file = card_.ca_file();
        options.signatures = "ECDSA+SHA256";
        options.key = session.private_key();
        options.cert = session.certificate();
        EXPECT_EQ(log_in(options).body, "TLSv1.3, TLS_AES_256_GCM_SHA384, -, CN=Grace Hopper, SUCCESS");
    }
}

TEST_F(WrapperTest, SoftwareKeysFailWhileTheEngineHasTheDefaultMethods) {
    const marvo::Session session = load(marvo::DefaultMethods::engine);
    EXPECT_FALSE(can_make_ec_key()); // the reason for the option
}

TEST_F(WrapperTest, SoftwareKeysWorkAndTheCardLogsInAfterOpensslGotItsDefaultMethodsBack) {
    const auto server = create_server("nginx", card_.server_setup());
    const marvo::Session session = load(marvo::DefaultMethods::openssl);
    EXPECT_TRUE(can_make_ec_key());
    EXPECT_EQ(software_signing_problem(create_legacy_rsa_key().get()), "");
    LoginOptions options;
    options.port = server->port();
    options.protocol = TLS1_2_VERSION;
    options.ca_file = card_.ca_file();
    options.signatures = "ECDSA+SHA256";
    options.key = session.private_key();
    options.cert = session.certificate();
    EXPECT_EQ(log_in(options).body, "TLSv1.2, ECDHE-ECDSA-AES256-GCM-SHA384, -, CN=Grace Hopper, SUCCESS");
}

} // namespace
} // namespace Kes::test
