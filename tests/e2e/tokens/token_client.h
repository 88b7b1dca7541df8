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

/// A client of the library as users write one, on the two public headers alone.
class Client {
public:
    /// Gets the interface and a configuration for SoftHSM, with a log of every severity in a folder of its
    /// own.
    Client();

    /// Ends the library's object unless end() did.
    ~Client();

    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    OsslScardIf* operator->() const { return scard; }

    /// init() with what stands in cfg.
    bool init() const { return scard->init(cfg) == 0; }

    /// init() and read_scard().
    bool read() const { return init() && scard->read_scard() == 0; }

    /// init() to discover_keys(); the number of keys then stands in num_keys.
    bool discover(const char* pin = token_pin);

    /// set_key() to ossl_load().
    bool load(const std::string& key_id = "%01") const;

    void end();

    /// The last error as it is, and with masked lines of OpenSSL.
    std::string error() const { return scard->get_last_error_msg(); }
    std::string masked_error() const { return masked_errors(error()); }

    EVP_PKEY* key() const { return loaded_key(*scard); }
    X509* certificate() const { return loaded_certificate(*scard); }

    /// The certificate handed out, DER; empty when there is none.
    Bytes certificate_der() const { return der_of(certificate()); }

    /// The names of all keys offered, sorted.
    Lines key_names() const;

    /// Each line of the log without its header.
    Lines log_lines() const;
    std::string log_text() const { return read_file(logfile); }

    /// Whether a line of the log, header aside, is that text.
    bool has_logged(const std::string& line) const;

    OsslScardIf* scard;
    OsslScardCfg* cfg;
    std::size_t num_keys = 0;

private:
    TempDir dir_;

public:
    const std::string logfile;
};

/// While it lives, the leak detector does not count what is allocated: for the slots of a reading that finds
/// no token, which the library forgets on purpose. All others that leak are named in token_main.cpp.
class KnownLeak {
public:
    KnownLeak();
    ~KnownLeak();
    KnownLeak(const KnownLeak&) = delete;
    KnownLeak& operator=(const KnownLeak&) = delete;
};

/// Runs the function in a child process, which then ends as a program does at the end of main(). Gives the
/// child's exit status: what the function returns, when all goes well. A child that a signal ended gives 1000
/// and its number.
int status_of_child(const std::function<int()>& function);

} // namespace Kes::test

#endif // KES_TESTS_E2E_TOKENS_TOKEN_CLIENT_H_
