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

/// A client of the DLL, in the folder of the test doubles, with a card that holds an RSA key with the id 01.
/// The names of module and engine are the defaults. At the end everything must have been released, and no
/// test double used wrongly.
class RoadTest : public ::testing::Test {
protected:
    RoadTest();
    void TearDown() override;

    OsslScardIf& scard() const { return *get_ossl_scard_if(); }

    /// The default configuration, for pkcs11 and with a log of all severities in a folder of the test's own.
    OsslScardCfg* make_config() const;

    /// init() and read_scard(); then set_pin() and discover_keys(); then set_key() to ossl_load().
    ::testing::AssertionResult read();
    ::testing::AssertionResult discover(const char* pin = card_pin);
    ::testing::AssertionResult load(const std::string& key_id = "%01");

    EVP_PKEY* key() const { return loaded_key(scard()); }
    X509* certificate() const { return loaded_certificate(scard()); }
    std::string subject() const;

    /// The last error as it is, and with masked lines of OpenSSL.
    std::string error() const { return scard().get_last_error_msg(); }
    std::string masked_error() const { return masked_errors(error()); }

    /// The log as it stands in the file.
    std::string log() const { return read_file(dir.file("log")); }

    TestCard card;
    std::size_t num_keys = 0;
    TempDir dir;
    Lines forgotten; ///< what is not released on purpose, as card.unbalanced() says it

private:
    CurrentFolder current_{MARVO_DOUBLES_DIR};
};

} // namespace Kes::test

#endif // KES_TESTS_E2E_WINDOWS_PKCS11_PKCS11_CLIENT_FIXTURE_H_
