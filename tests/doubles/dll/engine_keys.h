#ifndef KES_TESTS_DOUBLES_DLL_ENGINE_KEYS_H_
#define KES_TESTS_DOUBLES_DLL_ENGINE_KEYS_H_

#include <openssl/ec.h>
#include <openssl/engine.h>
#include <openssl/rsa.h>

#include "card_module.h"
#include "utils/ossl_ptr.h"

/// Keys and certificates that the engine returns. Each is recorded as an acquisition with its own name, and
/// as a release when OpenSSL frees the last reference.
namespace Kes::test {

/// Registers the ex data indexes and methods of the objects.
void set_up_engine_objects();

/// Removes them. Nothing may call the engine afterwards.
void tear_down_engine_objects();

const RSA_METHOD* engine_rsa_method();
const EC_KEY_METHOD* engine_ec_method();
int engine_pkey_methods(ENGINE* engine, EVP_PKEY_METHOD** method, const int** nids, int nid);

/// A private key whose operations the card performs through the module. Null for other types than RSA and EC.
EvpPkeyPtr make_engine_key(const CardModule& module, const CardObject& object);

X509Ptr make_engine_certificate(const CardObject& object);

/// Makes all existing keys unusable, because the engine unloads their module.
void end_engine_keys();

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_DLL_ENGINE_KEYS_H_
