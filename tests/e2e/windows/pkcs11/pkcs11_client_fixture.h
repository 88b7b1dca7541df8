#ifndef KES_TESTS_E2E_WINDOWS_PKCS11_PKCS11_CLIENT_FIXTURE_H_
#define KES_TESTS_E2E_WINDOWS_PKCS11_PKCS11_CLIENT_FIXTURE_H_

#include <functional>
#include <gtest/gtest.h>
#include <string>

#include "marvo/ossl_scard_cfg.h"
#include "marvo/ossl_scard_if.h"
#include "support/error_lines.h"
#include "support/loaded_key.h"
#include "support/signing.h"
#include "support/test_card.h"

namespace Kes::test {

constexpr const char* private_uri = "pkcs11:token=Card 1;id=%01;type=private";
constexpr const char* cert_uri = "pkcs11:token=Card 1;id=%01;type=cert";

/// A client of the DLL in the folder of the test doubles, with a card that has an RSA key with id 01. Module
/// and engine have their default file names. The fixture fails the test if the client leaks something or
/// violates the rules of a test double.
class Pkcs11ClientTest : public ::testing::Test {
protected:
    Pkcs11ClientTest();
    void TearDown() override;

    OsslScardIf& scard() const { return *get_ossl_scard_if(); }

    /// The default configuration, but for pkcs11 and with a log of all severities in a temporary folder.
    OsslScardCfg* make_config() const;

    /// The parts of a typical sequence: init() and read_scard(); set_pin() and discover_keys(); set_key() to
    /// ossl_load().
    ::testing::AssertionResult read();
    ::testing::AssertionResult discover(const char* pin = card_pin);
    ::testing::AssertionResult load(const std::string& key_id = "%01");

    EVP_PKEY* key() const { return loaded_key(scard()); }
    X509* certificate() const { return loaded_certificate(scard()); }
    std::string subject() const;

    /// The last error, unchanged or with OpenSSL's lines masked.
    std::string error() const { return scard().get_last_error_msg(); }
    std::string masked_error() const { return masked_errors(error()); }

    std::string log() const { return read_file(dir.file("log")); }

    TestCard card;
    std::size_t num_keys = 0;
    TempDir dir;
    Lines expected_leaks; ///< as card.unbalanced() returns them

private:
    CurrentFolder current_{MARVO_DOUBLES_DIR};
};

} // namespace Kes::test

#endif // KES_TESTS_E2E_WINDOWS_PKCS11_PKCS11_CLIENT_FIXTURE_H_
