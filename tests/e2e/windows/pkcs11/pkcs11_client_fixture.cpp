#include "pkcs11_client_fixture.h"

#include <openssl/x509.h>

namespace Kes::test {

Pkcs11ClientTest::Pkcs11ClientTest() { card.add("01", "ckp", "rsa", "Login"); }

void Pkcs11ClientTest::TearDown() {
    scard().destroy();
    EXPECT_EQ(card.violations(), Lines());
    EXPECT_EQ(card.unbalanced(), expected_leaks);
}

OsslScardCfg* Pkcs11ClientTest::make_config() const {
    OsslScardCfg* cfg = scard().get_config_default();
    cfg->set_crypto_if(OsslScardCfg::pkcs11);
    cfg->set_logfile(dir.file("log").c_str());
    cfg->set_logfile_severity(63);
    return cfg;
}

::testing::AssertionResult Pkcs11ClientTest::read() {
    if (scard().init(make_config()) == 0 && scard().read_scard() == 0) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << error();
}

::testing::AssertionResult Pkcs11ClientTest::discover(const char* pin) {
    if (scard().set_pin(pin) == 0 && scard().discover_keys(&num_keys) == 0)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << error();
}

::testing::AssertionResult Pkcs11ClientTest::load(const std::string& key_id) {
    if (scard().set_key(0, key_id.c_str()) == 0 && scard().notify_config_done() == 0 &&
        scard().ossl_load() == 0)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << error();
}

std::string Pkcs11ClientTest::subject() const {
    char text[256] = "no certificate";
    if (X509* loaded = certificate()) ::X509_NAME_oneline(::X509_get_subject_name(loaded), text, sizeof text);
    return text;
}

} // namespace Kes::test
