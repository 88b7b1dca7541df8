#include "engine_keys.h"

#include <list>
#include <openssl/ecdsa.h>
#include <string>
#include <vector>

#include "call_log.h"
#include "error_texts.h"

namespace Kes::test {
namespace {

/// The ex data of OpenSSL objects that the engine created. Other objects do not have it.
struct Mark {
    std::string name;
    const CardModule* module = nullptr; // null for a certificate, or a key after the engine's clean-up
    unsigned long handle = 0;
};

std::list<Mark>& marks = *new std::list<Mark>;
int keys_made = 0;
int certificates_made = 0;
int rsa_index = -1;
int ec_index = -1;
int certificate_index = -1;
RSA_METHOD* rsa_method = nullptr;
EC_KEY_METHOD* ec_method = nullptr;

void end_mark(const void* mark) {
    if (mark == nullptr) return;
    note_released(static_cast<const Mark*>(mark)->name);
    marks.remove_if([&](const Mark& candidate) { return &candidate == mark; });
}

/// OpenSSL calls this when a certificate is freed.
void end_certificate(void*, void* mark, CRYPTO_EX_DATA*, int, long, void*) { end_mark(mark); }

// OpenSSL calls these two functions when a key with the engine's method is freed. As in libp11, not the ex data
// but the methods release what belongs to the key.

int end_rsa(RSA* rsa) {
    end_mark(::RSA_get_ex_data(rsa, rsa_index));
    return ::RSA_meth_get_finish(::RSA_PKCS1_OpenSSL())(rsa);
}

void end_ec_key(EC_KEY* ec) { end_mark(::EC_KEY_get_ex_data(ec, ec_index)); }

int make_index(int kind, CRYPTO_EX_free* end = nullptr) {
    return ::CRYPTO_get_ex_new_index(kind, 0, nullptr, nullptr, nullptr, end);
}

Mark* make_mark(const std::string& name, const CardModule* module, unsigned long handle) {
    note_acquired(name);
    return &marks.emplace_back(Mark{name, module, handle});
}

/// Signs with the card. @return the signature; empty on failure
std::vector<unsigned char> sign(const Mark& key, CardMechanism mechanism, const unsigned char* data,
                                int size) {
    if (key.module == nullptr) {
        note_violation(key.name + " is used after the engine's clean-up");
        return {};
    }
    std::vector<unsigned char> signature(1024);
    std::size_t signature_size = signature.size();
    const unsigned long code = (*key.module)
                                   ->sign(key.handle, mechanism, data, static_cast<std::size_t>(size),
                                          signature.data(), &signature_size);
    if (code != card_ok) raise_module_error(code, "sign");
    signature.resize(code == card_ok ? signature_size : 0);
    return signature;
}

/// OpenSSL also calls this for software keys when the engine is the default for RSA.
int rsa_private_encrypt(int size, const unsigned char* from, unsigned char* to, RSA* rsa, int padding) {
    const auto* key = static_cast<const Mark*>(::RSA_get_ex_data(rsa, rsa_index));
    if (key == nullptr) return ::RSA_meth_get_priv_enc(::RSA_PKCS1_OpenSSL())(size, from, to, rsa, padding);
    if (padding != RSA_PKCS1_PADDING && padding != RSA_NO_PADDING) {
        raise_engine_error(engine_invalid_parameter, "rsa_private_encrypt");
        return -1;
    }
    const auto mechanism = padding == RSA_PKCS1_PADDING ? CardMechanism::rsa_pkcs1 : CardMechanism::rsa_raw;
    const auto signature = sign(*key, mechanism, from, size);
    std::copy(signature.begin(), signature.end(), to);
    return signature.empty() ? -1 : static_cast<int>(signature.size());
}

ECDSA_SIG* ec_sign(const unsigned char* digest, int size, const BIGNUM* kinv, const BIGNUM* rp, EC_KEY* ec) {
    const auto* key = static_cast<const Mark*>(::EC_KEY_get_ex_data(ec, ec_index));
    if (key == nullptr) {
        ECDSA_SIG* (*own)(const unsigned char*, int, const BIGNUM*, const BIGNUM*, EC_KEY*) = nullptr;
        ::EC_KEY_METHOD_get_sign(::EC_KEY_OpenSSL(), nullptr, nullptr, &own);
        return own(digest, size, kinv, rp, ec);
    }
    const auto signature = sign(*key, CardMechanism::ecdsa, digest, size);
    if (signature.empty()) return nullptr;
    const int half = static_cast<int>(signature.size() / 2);
    ECDSA_SIG* result = ::ECDSA_SIG_new();
    ::ECDSA_SIG_set0(result, ::BN_bin2bn(signature.data(), half, nullptr),
                     ::BN_bin2bn(signature.data() + half, half, nullptr));
    return result;
}

void make_methods() {
    rsa_method = ::RSA_meth_dup(::RSA_PKCS1_OpenSSL());
    ::RSA_meth_set1_name(rsa_method, "double of libp11's RSA method");
    ::RSA_meth_set_priv_enc(rsa_method, rsa_private_encrypt);
    ::RSA_meth_set_finish(rsa_method, end_rsa);
    ec_method = ::EC_KEY_METHOD_new(::EC_KEY_OpenSSL());
    int (*sign_der)(int, const unsigned char*, int, unsigned char*, unsigned int*, const BIGNUM*,
                    const BIGNUM*, EC_KEY*) = nullptr;
    int (*prepare)(EC_KEY*, BN_CTX*, BIGNUM**, BIGNUM**) = nullptr;
    ::EC_KEY_METHOD_get_sign(ec_method, &sign_der, &prepare, nullptr);
    ::EC_KEY_METHOD_set_sign(ec_method, sign_der, prepare, ec_sign);
    ::EC_KEY_METHOD_set_init(ec_method, nullptr, end_ec_key, nullptr, nullptr, nullptr, nullptr);
}

using RsaPtr = std::unique_ptr<RSA, FreeWith<&::RSA_free>>;
using EcKeyPtr = std::unique_ptr<EC_KEY, FreeWith<&::EC_KEY_free>>;

EvpPkeyPtr make_rsa_key(const CardModule& module, const CardObject& object) {
    const RsaPtr rsa(::RSAPublicKey_dup(::EVP_PKEY_get0_RSA(object.public_key)));
    ::RSA_set_method(rsa.get(), rsa_method);
    const std::string name = "key" + std::to_string(++keys_made);
    ::RSA_set_ex_data(rsa.get(), rsa_index, make_mark(name, &module, object.handle));
    EvpPkeyPtr key(::EVP_PKEY_new());
    ::EVP_PKEY_set1_RSA(key.get(), rsa.get());
    return key;
}

EvpPkeyPtr make_ec_key(const CardModule& module, const CardObject& object) {
    const EC_KEY* card_key = ::EVP_PKEY_get0_EC_KEY(object.public_key);
    const EcKeyPtr ec(::EC_KEY_new_by_curve_name(::EC_GROUP_get_curve_name(::EC_KEY_get0_group(card_key))));
    ::EC_KEY_set_public_key(ec.get(), ::EC_KEY_get0_public_key(card_key));
    ::EC_KEY_set_method(ec.get(), ec_method);
    const std::string name = "key" + std::to_string(++keys_made);
    ::EC_KEY_set_ex_data(ec.get(), ec_index, make_mark(name, &module, object.handle));
    EvpPkeyPtr key(::EVP_PKEY_new());
    ::EVP_PKEY_set1_EC_KEY(key.get(), ec.get());
    return key;
}

} // namespace

void set_up_engine_objects() {
    if (rsa_method != nullptr) return;
    rsa_index = make_index(CRYPTO_EX_INDEX_RSA);
    ec_index = make_index(CRYPTO_EX_INDEX_EC_KEY);
    certificate_index = make_index(CRYPTO_EX_INDEX_X509, end_certificate);
    make_methods();
}

void tear_down_engine_objects() {
    if (rsa_method == nullptr) return;
    if (!marks.empty()) note_violation("the engine ends before what it made");
    ::CRYPTO_free_ex_index(CRYPTO_EX_INDEX_RSA, rsa_index);
    ::CRYPTO_free_ex_index(CRYPTO_EX_INDEX_EC_KEY, ec_index);
    ::CRYPTO_free_ex_index(CRYPTO_EX_INDEX_X509, certificate_index);
    ::RSA_meth_free(rsa_method);
    ::EC_KEY_METHOD_free(ec_method);
    rsa_method = nullptr;
    ec_method = nullptr;
}

const RSA_METHOD* engine_rsa_method() { return rsa_method; }

const EC_KEY_METHOD* engine_ec_method() { return ec_method; }

int engine_pkey_methods(ENGINE*, EVP_PKEY_METHOD** method, const int** nids, int nid) {
    static constexpr int known[] = {EVP_PKEY_RSA, EVP_PKEY_EC};
    if (method == nullptr) {
        *nids = known;
        return static_cast<int>(std::size(known));
    }
    // OpenSSL's own methods add the padding and then call the key's method.
    const bool is_known = nid == EVP_PKEY_RSA || nid == EVP_PKEY_EC;
    *method = is_known ? const_cast<EVP_PKEY_METHOD*>(::EVP_PKEY_meth_find(nid)) : nullptr;
    return *method == nullptr ? 0 : 1;
}

EvpPkeyPtr make_engine_key(const CardModule& module, const CardObject& object) {
    switch (::EVP_PKEY_get_base_id(object.public_key)) {
    case EVP_PKEY_RSA:
        return make_rsa_key(module, object);
    case EVP_PKEY_EC:
        return make_ec_key(module, object);
    default:
        return nullptr;
    }
}

X509Ptr make_engine_certificate(const CardObject& object) {
    X509Ptr certificate(::X509_dup(object.certificate));
    const std::string name = "cert" + std::to_string(++certificates_made);
    ::X509_set_ex_data(certificate.get(), certificate_index, make_mark(name, nullptr, object.handle));
    return certificate;
}

void end_engine_keys() {
    for (Mark& mark : marks)
        mark.module = nullptr;
}

} // namespace Kes::test
