#ifndef KES_TESTS_DOUBLES_DLL_ENGINE_KEYS_H_
#define KES_TESTS_DOUBLES_DLL_ENGINE_KEYS_H_

#include <openssl/ec.h>
#include <openssl/engine.h>
#include <openssl/rsa.h>

#include "card_module.h"
#include "utils/ossl_ptr.h"

/// Keys and certificates as the engine hands them out. Each is an acquisition with a name of its own,
/// released when OpenSSL frees the last of it.
namespace Kes::test {

/// Registers with OpenSSL what the objects need, and takes it back: afterwards nothing may call the engine.
void set_up_engine_objects();
void tear_down_engine_objects();

const RSA_METHOD* engine_rsa_method();
const EC_KEY_METHOD* engine_ec_method();
int engine_pkey_methods(ENGINE* engine, EVP_PKEY_METHOD** method, const int** nids, int nid);

/// A private key whose operations the card does by way of the module. Null when its type is unknown.
EvpPkeyPtr make_engine_key(const CardModule& module, const CardObject& object);

X509Ptr make_engine_certificate(const CardObject& object);

/// From now on the keys made so far cannot be used: the module that they need is no longer the engine's.
void end_engine_keys();

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_DLL_ENGINE_KEYS_H_
