#ifndef KES_TESTS_E2E_WINDOWS_CAPI_CAPI_CLIENT_FIXTURE_H_
#define KES_TESTS_E2E_WINDOWS_CAPI_CAPI_CLIENT_FIXTURE_H_

#include <gtest/gtest.h>
#include <string>

#include "marvo/ossl_scard_cfg.h"
#include "marvo/ossl_scard_if.h"
#include "support/certificates.h"
#include "support/csp_card.h"
#include "support/error_lines.h"
#include "support/loaded_key.h"
#include "support/signing.h"
#include "support/windows_error.h"

namespace Kes::test {

/// A client of the DLL with the default settings and an empty card. It runs in an empty folder, to which it
/// writes its log. Windows still finds the engine, because it also searches the program's folder for relative
/// paths. The fixture fails the test unless every handle of the card is released exactly once.
class CapiClientTest : public ::testing::Test {
protected:
    void TearDown() override;

    OsslScardIf& scard() const { return *get_ossl_scard_if(); }

    /// The default configuration with the members crypto_if and log_severity.
    OsslScardCfg* make_config() const;

    /// The parts of a typical sequence: init() to discover_keys(), and set_key() to ossl_load(). Without
    /// arguments, load() does not call set_key().
    ::testing::AssertionResult discover();
    ::testing::AssertionResult load();
    ::testing::AssertionResult load(unsigned int key_type, const std::string& key_id);

    EVP_PKEY* key() const { return loaded_key(scard()); }
    X509* certificate() const { return loaded_certificate(scard()); }
    Lines key_names() const { return found_key_names(scard(), num_keys); }
    std::string error() const { return scard().get_last_error_msg(); }

    /// The lines of the log so far without their headers.
    Lines log() const;

    OsslScardCfg::CryptoIf crypto_if = OsslScardCfg::capi;
    unsigned int log_severity = 60; ///< the default
    CspCard card;
    std::size_t num_keys = 0;

private:
    TempDir folder_;
    CurrentFolder current_{folder_.path()};
};

} // namespace Kes::test

#endif // KES_TESTS_E2E_WINDOWS_CAPI_CAPI_CLIENT_FIXTURE_H_
