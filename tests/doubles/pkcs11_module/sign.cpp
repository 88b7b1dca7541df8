#include <array>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/rsa.h>

#include "crypto.h"
#include "failure.h"

namespace Kes::test {
namespace {

using EcdsaSigPtr = std::unique_ptr<ECDSA_SIG, FreeWith<&::ECDSA_SIG_free>>;

struct Hash {
    CK_MECHANISM_TYPE type;
    CK_RSA_PKCS_MGF_TYPE mgf;
    const char* name;
    std::size_t size;
};

constexpr std::array<Hash, 5> hashes{{{CKM_SHA_1, CKG_MGF1_SHA1, "SHA1", 20},
                                      {CKM_SHA224, CKG_MGF1_SHA224, "SHA224", 28},
                                      {CKM_SHA256, CKG_MGF1_SHA256, "SHA256", 32},
                                      {CKM_SHA384, CKG_MGF1_SHA384, "SHA384", 48},
                                      {CKM_SHA512, CKG_MGF1_SHA512, "SHA512", 64}}};

const Hash* find_hash(const CK_RSA_PKCS_PSS_PARAMS& pss) {
    for (const Hash& hash : hashes)
        if (hash.type == pss.hashAlg && hash.mgf == pss.mgf) return &hash;
    return nullptr;
}

/// The length of a coordinate of the key's curve.
std::size_t field_size(const EVP_PKEY* key) {
    return (static_cast<std::size_t>(::EVP_PKEY_get_bits(key)) + 7) / 8;
}

/// Converts OpenSSL's form of a signature, a sequence of two numbers, to theirs: both numbers in full length.
Bytes both_numbers(const Bytes& der, std::size_t size) {
    const unsigned char* next = der.data();
    const EcdsaSigPtr signature(::d2i_ECDSA_SIG(nullptr, &next, static_cast<long>(der.size())));
    require(signature != nullptr, CKR_FUNCTION_FAILED);
    Bytes bytes(2 * size);
    ::BN_bn2binpad(::ECDSA_SIG_get0_r(signature.get()), bytes.data(), static_cast<int>(size));
    ::BN_bn2binpad(::ECDSA_SIG_get0_s(signature.get()), bytes.data() + size, static_cast<int>(size));
    return bytes;
}

/// Signs without hashing the data.
Bytes signature_of(EVP_PKEY_CTX* operation, const Bytes& data) {
    std::size_t length = 0;
    require(::EVP_PKEY_sign(operation, nullptr, &length, data.data(), data.size()) == 1, CKR_FUNCTION_FAILED);
    Bytes signature(length);
    require(::EVP_PKEY_sign(operation, signature.data(), &length, data.data(), data.size()) == 1,
            CKR_FUNCTION_FAILED);
    signature.resize(length);
    return signature;
}

void set_pss(EVP_PKEY_CTX* operation, const CK_RSA_PKCS_PSS_PARAMS& pss, std::size_t data_size) {
    const Hash* hash = find_hash(pss);
    require(hash != nullptr, CKR_MECHANISM_PARAM_INVALID);
    require(data_size == hash->size, CKR_DATA_LEN_RANGE);
    const bool is_set = ::EVP_PKEY_CTX_set_rsa_padding(operation, RSA_PKCS1_PSS_PADDING) == 1 &&
                        ::EVP_PKEY_CTX_set_signature_md(operation, ::EVP_get_digestbyname(hash->name)) == 1 &&
                        ::EVP_PKEY_CTX_set_rsa_pss_saltlen(operation, static_cast<int>(pss.sLen)) == 1;
    require(is_set, CKR_MECHANISM_PARAM_INVALID);
}

/// Data of the raw operation is a number of up to the key's size.
void set_raw(EVP_PKEY_CTX* operation, Bytes& data, std::size_t key_size) {
    require(data.size() <= key_size, CKR_DATA_LEN_RANGE);
    data.insert(data.begin(), key_size - data.size(), 0);
    ::EVP_PKEY_CTX_set_rsa_padding(operation, RSA_NO_PADDING);
}

void set_pkcs1(EVP_PKEY_CTX* operation, std::size_t data_size, std::size_t key_size) {
    constexpr std::size_t smallest_padding = 11;
    require(data_size + smallest_padding <= key_size, CKR_DATA_LEN_RANGE);
    ::EVP_PKEY_CTX_set_rsa_padding(operation, RSA_PKCS1_PADDING);
}

} // namespace

std::size_t signature_size(const EVP_PKEY* key) {
    const auto size = static_cast<std::size_t>(::EVP_PKEY_get_size(key));
    return ::EVP_PKEY_is_a(key, "EC") == 1 ? 2 * field_size(key) : size;
}

void check_mechanism(const CK_MECHANISM& mechanism, const EVP_PKEY* key) {
    const bool is_ec = mechanism.mechanism == CKM_ECDSA;
    require(::EVP_PKEY_is_a(key, is_ec ? "EC" : "RSA") == 1, CKR_KEY_TYPE_INCONSISTENT);
    if (mechanism.mechanism != CKM_RSA_PKCS_PSS) return;
    const bool has_params =
        mechanism.pParameter != nullptr && mechanism.ulParameterLen == sizeof(CK_RSA_PKCS_PSS_PARAMS);
    require(has_params, CKR_MECHANISM_PARAM_INVALID);
    require(find_hash(*static_cast<const CK_RSA_PKCS_PSS_PARAMS*>(mechanism.pParameter)) != nullptr,
            CKR_MECHANISM_PARAM_INVALID);
}

Bytes sign(EVP_PKEY* key, CK_MECHANISM_TYPE mechanism, const CK_RSA_PKCS_PSS_PARAMS& pss, Bytes data) {
    const EvpPkeyContextPtr operation = create_operation(key);
    require(operation && ::EVP_PKEY_sign_init(operation.get()) == 1, CKR_FUNCTION_FAILED);
    const std::size_t size = signature_size(key);
    if (mechanism == CKM_RSA_PKCS) set_pkcs1(operation.get(), data.size(), size);
    if (mechanism == CKM_RSA_X_509) set_raw(operation.get(), data, size);
    if (mechanism == CKM_RSA_PKCS_PSS) set_pss(operation.get(), pss, data.size());
    const Bytes signature = signature_of(operation.get(), data);
    return mechanism == CKM_ECDSA ? both_numbers(signature, field_size(key)) : signature;
}

} // namespace Kes::test
