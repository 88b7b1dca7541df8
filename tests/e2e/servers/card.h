#ifndef KES_TESTS_E2E_SERVERS_CARD_H_
#define KES_TESTS_E2E_SERVERS_CARD_H_

#include <string>
#include <vector>

#include <openssl/ossl_typ.h>

#include "marvo/ossl_scard_if.h"
#include "server.h"
#include "support/support.h"

namespace Kes::test {

/// Runs tools/soft-token.
/// @return its output without trailing line feeds
std::string soft_token(std::vector<std::string> args);

/// What a client must know of a card with one key.
struct CardAccess {
    std::string module;
    std::string pin;
    std::string log_file; ///< of the library
};

/// A soft token with one key and its certificate, the CA that signed it, and a server certificate. All are
/// created for the object and deleted with it.
class Card {
public:
    /// @param options  additional options of soft-token for the key's certificate
    Card(const std::string& key_type, const std::string& subject,
         const std::vector<std::string>& options = {});

    std::string file(const std::string& name) const { return dir_.file(name); }
    std::string ca_file() const { return file("ca.crt"); }
    ServerSetup server_setup() const { return ServerSetup(dir_.path()); }
    const char* pin() const { return "271828"; }
    CardAccess access() const { return {soft_token({"module"}), pin(), file("client.log")}; }

private:
    TempDir dir_;
    EnvVar conf_;
};

/// A key and its certificate, loaded from the card with the library as a client does it. TLS objects that use
/// them must be freed before this object.
class LoadedKey {
public:
    /// @throws std::runtime_error with the library's error message
    explicit LoadedKey(const CardAccess& card);
    explicit LoadedKey(const Card& card) : LoadedKey(card.access()) {}
    ~LoadedKey();
    LoadedKey(const LoadedKey&) = delete;
    LoadedKey& operator=(const LoadedKey&) = delete;

    EVP_PKEY* key() const { return key_; }
    X509* cert() const { return cert_; }

private:
    void load(const CardAccess& card);

    OsslScardIf* library_;
    EVP_PKEY* key_ = nullptr;
    X509* cert_ = nullptr;
};

} // namespace Kes::test

#endif // KES_TESTS_E2E_SERVERS_CARD_H_
