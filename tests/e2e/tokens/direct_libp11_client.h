#ifndef KES_TESTS_E2E_TOKENS_DIRECT_LIBP11_CLIENT_H_
#define KES_TESTS_E2E_TOKENS_DIRECT_LIBP11_CLIENT_H_

#include <libp11.h>
#include <openssl/types.h>
#include <string>

namespace Kes::test {

/// Does with direct calls of libp11 and OpenSSL what the library does for a client. The tests compare the
/// library's calls and leaks with those of this class.
class DirectLibp11Client {
public:
    /// Loads the module and finds the token: init() and read_scard().
    explicit DirectLibp11Client(const std::string& module);

    /// Releases the slots and finds the token again: a repeated read_scard().
    void read();

    bool log_in(const char* pin);

    /// Lists certificates, private keys and public keys, as discover_keys() must.
    /// @return the number of private keys
    unsigned int scan();

    /// Loads the engine and the key and certificate with id 01: ossl_load().
    bool load(const char* pin, const std::string& token_label);

    /// Releases everything: destroy().
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
