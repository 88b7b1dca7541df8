#include "pkcs11/key_lender.h"

#include <openssl/crypto.h>
#include <openssl/ec.h>
#include <openssl/engine.h>
#include <openssl/rsa.h>
#include <utility>

#include "utils/error.h"
#include "utils/platform.h"

namespace Kes {
namespace {

using RsaPtr = std::unique_ptr<RSA, FreeWith<&::RSA_free>>;
using EcKeyPtr = std::unique_ptr<EC_KEY, FreeWith<&::EC_KEY_free>>;
using RsaMethodPtr = std::unique_ptr<RSA_METHOD, FreeWith<&::RSA_meth_free>>;
using EcMethodPtr = std::unique_ptr<EC_KEY_METHOD, FreeWith<&::EC_KEY_METHOD_free>>;
using BignumPtr = std::unique_ptr<BIGNUM, FreeWith<&::BN_free>>;

void require(bool is_done) {
    if (!is_done)
        throw OsslError(OsslErrorCode(0), "error creating the client's private key",
                        "key_lender:24 Kes::KeyLender::lend()");
}

// OpenSSL calls these two functions when an RSA or EC_KEY is duplicated and when it is freed. The value is the
// engine's key, and null for a key that was not lent. The argument is the number of lent keys.
int count_duplicate(CRYPTO_EX_DATA*, const CRYPTO_EX_DATA*, void** value, int, long, void* count) {
    if (*value == nullptr) return 1;
    if (::EVP_PKEY_up_ref(static_cast<EVP_PKEY*>(*value)) != 1) return 0;
    ++*static_cast<std::atomic<int>*>(count);
    return 1;
}

void count_free(void*, void* value, CRYPTO_EX_DATA*, int, long, void* count) {
    if (value == nullptr) return;
    ::EVP_PKEY_free(static_cast<EVP_PKEY*>(value));
    --*static_cast<std::atomic<int>*>(count);
}

// The methods below lack the engine's own function for freed keys. In libp11 0.4.12, that function releases
// the engine's key object once for each RSA or EC_KEY, although the engine has counted only its own.

RsaMethodPtr create_method(const RSA_METHOD* engine_method) {
    RsaMethodPtr method(::RSA_meth_dup(engine_method));
    require(method && ::RSA_meth_set_finish(method.get(), ::RSA_meth_get_finish(::RSA_PKCS1_OpenSSL())) == 1);
    return method;
}

EcMethodPtr create_method(const EC_KEY_METHOD* engine_method) {
    EcMethodPtr method(::EC_KEY_METHOD_new(engine_method));
    require(method != nullptr);
    ::EC_KEY_METHOD_set_init(method.get(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    return method;
}

/// Copies what the engine's library has attached to its key, because its functions look for it there. libp11
/// frees it in the functions for freed keys, which the method of the copy lacks, and not through the ex-data.
/// Does not replace what other code attaches to every key. The library has registered its index before "end".
template <typename Key, typename Get, typename Set>
void copy_ex_data(Key* copy, const Key* source, int end, Get get, Set set) {
    for (int i = 0; i < end; ++i) {
        void* value = get(source, i);
        if (value != nullptr && get(copy, i) == nullptr) require(set(copy, i, value) == 1);
    }
}

RsaPtr copy_rsa(const RSA* source, const RSA_METHOD* method, int ex_data_end) {
    RsaPtr copy(::RSA_new());
    require(copy && ::RSA_set_method(copy.get(), method) == 1);
    BignumPtr modulus(::BN_dup(::RSA_get0_n(source)));
    BignumPtr exponent(::BN_dup(::RSA_get0_e(source)));
    require(::RSA_set0_key(copy.get(), modulus.get(), exponent.get(), nullptr) == 1);
    static_cast<void>(modulus.release()); // copy owns both numbers now
    static_cast<void>(exponent.release());
    ::RSA_set_flags(copy.get(), ::RSA_test_flags(source, RSA_FLAG_EXT_PKEY));
    copy_ex_data(copy.get(), source, ex_data_end, ::RSA_get_ex_data, ::RSA_set_ex_data);
    return copy;
}

EcKeyPtr copy_ec_key(const EC_KEY* source, const EC_KEY_METHOD* method, int ex_data_end) {
    EcKeyPtr copy(::EC_KEY_new());
    require(copy && ::EC_KEY_set_method(copy.get(), method) == 1 &&
            ::EC_KEY_set_group(copy.get(), ::EC_KEY_get0_group(source)) == 1 &&
            ::EC_KEY_set_public_key(copy.get(), ::EC_KEY_get0_public_key(source)) == 1);
    // The engine's key has a number in place of the private key, so that OpenSSL takes it for a private key.
    const BIGNUM* number = ::EC_KEY_get0_private_key(source);
    require(number == nullptr || ::EC_KEY_set_private_key(copy.get(), number) == 1);
    copy_ex_data(copy.get(), source, ex_data_end, ::EC_KEY_get_ex_data, ::EC_KEY_set_ex_data);
    return copy;
}

} // namespace

EvpPkeyPtr KeyLender::lend(EvpPkeyPtr engine_key, ENGINE* engine) {
    EvpPkeyPtr lent(::EVP_PKEY_new());
    require(lent != nullptr);
    switch (::EVP_PKEY_get_base_id(engine_key.get())) {
    case EVP_PKEY_RSA:
        set_rsa(*lent, std::move(engine_key));
        break;
    case EVP_PKEY_EC:
        set_ec_key(*lent, std::move(engine_key));
        break;
    default:
        has_lent_other_key = true;
        return engine_key;
    }
    require(::EVP_PKEY_set1_engine(lent.get(), engine) == 1);
    return lent;
}

void KeyLender::set_rsa(EVP_PKEY& lent, EvpPkeyPtr engine_key) {
    const RSA* source = ::EVP_PKEY_get0_RSA(engine_key.get());
    require(source != nullptr);
    if (rsa_method == nullptr) rsa_method = create_method(::RSA_get_method(source)).release();
    if (rsa_index < 0) rsa_index = register_count(CRYPTO_EX_INDEX_RSA);
    const RsaPtr rsa = copy_rsa(source, rsa_method, rsa_index);
    require(::RSA_set_ex_data(rsa.get(), rsa_index, engine_key.get()) == 1);
    ++count;
    static_cast<void>(engine_key.release()); // count_free() frees it
    require(::EVP_PKEY_set1_RSA(&lent, rsa.get()) == 1);
}

void KeyLender::set_ec_key(EVP_PKEY& lent, EvpPkeyPtr engine_key) {
    const EC_KEY* source = ::EVP_PKEY_get0_EC_KEY(engine_key.get());
    require(source != nullptr);
    if (ec_method == nullptr) ec_method = create_method(::EC_KEY_get_method(source)).release();
    if (ec_index < 0) ec_index = register_count(CRYPTO_EX_INDEX_EC_KEY);
    const EcKeyPtr ec_key = copy_ec_key(source, ec_method, ec_index);
    require(::EC_KEY_set_ex_data(ec_key.get(), ec_index, engine_key.get()) == 1);
    ++count;
    static_cast<void>(engine_key.release()); // count_free() frees it
    require(::EVP_PKEY_set1_EC_KEY(&lent, ec_key.get()) == 1);
}

int KeyLender::register_count(int key_class) {
    platform::keep_library_loaded(); // OpenSSL keeps both callbacks
    const int index = ::CRYPTO_get_ex_new_index(key_class, 0, &count, nullptr, count_duplicate, count_free);
    require(index >= 0);
    return index;
}

} // namespace Kes
