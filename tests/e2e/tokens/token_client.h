#ifndef KES_TESTS_E2E_TOKENS_TOKEN_CLIENT_H_
#define KES_TESTS_E2E_TOKENS_TOKEN_CLIENT_H_

#include <functional>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <string>
#include <vector>

#include "marvo/ossl_scard_cfg.h"
#include "marvo/ossl_scard_if.h"
#include "soft_token.h"
#include "support/certificates.h"
#include "support/error_lines.h"
#include "support/loaded_key.h"
#include "support/signing.h"

namespace Kes::test {

/// A client of the library that uses only the two public headers, as an application does.
class Client {
public:
    /// Gets the interface and configures it for SoftHSM, with a log of all severities in a temporary folder.
    Client();

    /// Destroys the interface object unless end() has done so.
    ~Client();

    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    OsslScardIf* operator->() const { return scard; }

    /// init() with the settings in cfg.
    bool init() const { return scard->init(cfg) == 0; }

    /// init() and read_scard().
    bool read() const { return init() && scard->read_scard() == 0; }

    /// init() to discover_keys(), which stores the number of keys in num_keys.
    bool discover(const char* pin = token_pin);

    /// set_key() to ossl_load().
    bool load(const std::string& key_id = "%01") const;

    void end();

    /// The last error, unchanged or with OpenSSL's lines masked.
    std::string error() const { return scard->get_last_error_msg(); }
    std::string masked_error() const { return masked_errors(error()); }

    EVP_PKEY* key() const { return loaded_key(*scard); }
    X509* certificate() const { return loaded_certificate(*scard); }

    /// The loaded certificate, DER-encoded; empty if none is loaded.
    Bytes certificate_der() const { return der_of(certificate()); }

    /// The sorted names of all keys that the library offers.
    Lines key_names() const;

    /// The lines of the log without their headers.
    Lines log_lines() const;
    std::string log_text() const { return read_file(logfile); }

    /// Whether the log has this line, not counting its header.
    bool has_logged(const std::string& line) const;

    OsslScardIf* scard;
    OsslScardCfg* cfg;
    std::size_t num_keys = 0;

private:
    TempDir dir_;

public:
    const std::string logfile;
};

/// Hides allocations from the leak detector during its lifetime. It is for the slots of a read_scard() that
/// finds no token, which the library does not release on purpose. token_main.cpp lists all other known leaks.
class KnownLeak {
public:
    KnownLeak();
    ~KnownLeak();
    KnownLeak(const KnownLeak&) = delete;
    KnownLeak& operator=(const KnownLeak&) = delete;
};

/// Runs the function in a child process, which then exits as a program does at the end of main().
/// @return the child's exit status, normally what the function returns; 1000 plus the signal's number if a
///     signal ended the child
int status_of_child(const std::function<int()>& function);

} // namespace Kes::test

#endif // KES_TESTS_E2E_TOKENS_TOKEN_CLIENT_H_
