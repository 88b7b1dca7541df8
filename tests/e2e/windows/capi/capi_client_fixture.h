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

/// A client of the DLL with the default settings, in an empty folder, where the log goes, and with an empty
/// card. (The engine is found all the same: Windows looks for a relative path in the program's folder, too.)
/// At the end every handle of the card must have been released once.
class RoadTest : public ::testing::Test {
protected:
    void TearDown() override;

    OsslScardIf& scard() const { return *get_ossl_scard_if(); }

    /// The default configuration, but for the road and for the lines of all severities in the log.
    OsslScardCfg* make_config() const;

    /// init() to discover_keys(); then what follows on set_key() up to ossl_load().
    ::testing::AssertionResult discover();
    ::testing::AssertionResult load();
    ::testing::AssertionResult load(unsigned int key_type, const std::string& key_id);

    EVP_PKEY* key() const { return loaded_key(scard()); }
    X509* certificate() const { return loaded_certificate(scard()); }
    Lines key_names() const { return found_key_names(scard(), num_keys); }
    std::string error() const { return scard().get_last_error_msg(); }

    /// The log so far, as without_header() gives it.
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
