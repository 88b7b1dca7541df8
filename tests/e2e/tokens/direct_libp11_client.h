#ifndef KES_TESTS_E2E_TOKENS_DIRECT_LIBP11_CLIENT_H_
#define KES_TESTS_E2E_TOKENS_DIRECT_LIBP11_CLIENT_H_

#include <libp11.h>
#include <openssl/types.h>
#include <string>

namespace Kes::test {

/// What the library does for a client, written directly on libp11 and OpenSSL: what it costs and leaves
/// behind is what the library is measured by.
class ByHand {
public:
    /// Loads the module and finds the token: init() and read_scard().
    explicit ByHand(const std::string& module);

    /// Releases the slots and finds the token anew: read_scard() once more.
    void read();

    bool log_in(const char* pin);

    /// Lists certificates, private and public keys, as discover_keys() has to. Gives the number of private
    /// keys.
    unsigned int scan();

    /// Loads engine, key and certificate with the id 01: ossl_load().
    bool load(const char* pin, const std::string& token_label);

    /// Ends everything: destroy().
    void end();

private:
    void find_token();
    bool command(const char* name, const char* value);
    bool set_up_engine(const char* pin);

    std::string module_;
    PKCS11_CTX* context_;
    PKCS11_SLOT* slots_ = nullptr;
    PKCS11_SLOT* slot_ = nullptr;
    unsigned int count_ = 0;
    ENGINE* engine_ = nullptr;
    EVP_PKEY* key_ = nullptr;
    X509* certificate_ = nullptr;
};

} // namespace Kes::test

#endif // KES_TESTS_E2E_TOKENS_DIRECT_LIBP11_CLIENT_H_
