#define OPENSSL_SUPPRESS_DEPRECATED // engines, RSA and EC_KEY
#include "software_keys.h"

#include <openssl/ec.h>
#include <openssl/engine.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>
#include <stdexcept>

#include "signing.h"

namespace Kes::test {
namespace {

void require(bool good, const char* what) {
    if (!good) throw std::runtime_error(what);
}

X509Ptr certificate_of(EVP_PKEY* key) {
    X509Ptr certificate(::X509_new());
    require(::X509_set_pubkey(certificate.get(), key) == 1, "the certificate cannot contain the key");
    return certificate;
}

using EnginePtr = std::unique_ptr<ENGINE, FreeWith<&::ENGINE_free>>;

EnginePtr find_engine(const char* id) {
    EnginePtr engine(::ENGINE_by_id(id));
    require(engine != nullptr, "no engine has this id");
    return engine;
}

} // namespace

EvpPkeyPtr create_legacy_rsa_key() {
    using BignumPtr = std::unique_ptr<BIGNUM, FreeWith<&::BN_free>>;
    const BignumPtr exponent(::BN_new());
    RSA* rsa = ::RSA_new();
    EvpPkeyPtr key(::EVP_PKEY_new());
    require(::BN_set_word(exponent.get(), RSA_F4) == 1 &&
                ::RSA_generate_key_ex(rsa, 2048, exponent.get(), nullptr) == 1 &&
                EVP_PKEY_assign_RSA(key.get(), rsa) == 1,
            "no RSA key");
    return key;
}

EvpPkeyPtr create_legacy_ec_key() {
    EC_KEY* ec = ::EC_KEY_new_by_curve_name(NID_X9_62_prime256v1);
    EvpPkeyPtr key(::EVP_PKEY_new());
    require(::EC_KEY_generate_key(ec) == 1 && EVP_PKEY_assign_EC_KEY(key.get(), ec) == 1, "no EC key");
    return key;
}

std::string software_signing_problem(EVP_PKEY* key) {
    return key == nullptr ? "no key" : signing_problem(key, certificate_of(key).get());
}

std::string software_pkcs1_problem(EVP_PKEY* key) {
    return key == nullptr ? "no key" : signing_problem(key, certificate_of(key).get(), pkcs1);
}

void unregister_key_methods(const char* engine_id) {
    ::ENGINE_unregister_pkey_meths(find_engine(engine_id).get());
}

void unregister_rsa(const char* engine_id) { ::ENGINE_unregister_RSA(find_engine(engine_id).get()); }

} // namespace Kes::test
