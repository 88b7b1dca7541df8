#include "signature_check.h"

#include <memory>
#include <openssl/rsa.h>
#include <vector>

#include "types.h"
#include "utils/ossl_ptr.h"

namespace Kes::test {
namespace {

struct Method {
    const char* digest;
    int padding; // 0 where the key type has none
};

std::vector<Method> methods_of(EVP_PKEY* key) {
    if (::EVP_PKEY_get_base_id(key) == EVP_PKEY_RSA)
        return {{"SHA256", RSA_PKCS1_PADDING},
                {"SHA384", RSA_PKCS1_PADDING},
                {"SHA256", RSA_PKCS1_PSS_PADDING},
                {"SHA512", RSA_PKCS1_PSS_PADDING}};
    return {{"SHA256", 0}, {"SHA384", 0}};
}

using MdPtr = std::unique_ptr<EVP_MD_CTX, FreeWith<&::EVP_MD_CTX_free>>;
using LibraryContextPtr = std::unique_ptr<OSSL_LIB_CTX, FreeWith<&::OSSL_LIB_CTX_free>>;

const Bytes message{'w', 'h', 'a', 't', ' ', 'i', 's', ' ', 's', 'i', 'g', 'n', 'e', 'd'};

bool set_padding(EVP_PKEY_CTX* context, int padding) {
    if (padding == 0) return true;
    if (::EVP_PKEY_CTX_set_rsa_padding(context, padding) != 1) return false;
    return padding != RSA_PKCS1_PSS_PADDING ||
           ::EVP_PKEY_CTX_set_rsa_pss_saltlen(context, RSA_PSS_SALTLEN_DIGEST) == 1;
}

Bytes sign(EVP_PKEY* key, const Method& method) {
    const MdPtr context(::EVP_MD_CTX_new());
    EVP_PKEY_CTX* key_context = nullptr;
    Bytes signature(static_cast<std::size_t>(::EVP_PKEY_get_size(key)));
    std::size_t size = signature.size();
    if (::EVP_DigestSignInit(context.get(), &key_context, ::EVP_get_digestbyname(method.digest), nullptr,
                             key) != 1 ||
        !set_padding(key_context, method.padding) ||
        ::EVP_DigestSign(context.get(), signature.data(), &size, message.data(), message.size()) != 1)
        return {};
    signature.resize(size);
    return signature;
}

EvpPkeyPtr public_key_of(X509* certificate, OSSL_LIB_CTX* context) {
    unsigned char* der = nullptr;
    const int length = ::i2d_X509_PUBKEY(::X509_get_X509_PUBKEY(certificate), &der);
    const unsigned char* next = der;
    EvpPkeyPtr key(::d2i_PUBKEY_ex(nullptr, &next, length, context, nullptr));
    ::OPENSSL_free(der);
    return key;
}

bool is_right(X509* certificate, const Method& method, const Bytes& signature) {
    const LibraryContextPtr own(::OSSL_LIB_CTX_new());
    const EvpPkeyPtr key = public_key_of(certificate, own.get());
    const MdPtr context(::EVP_MD_CTX_new());
    EVP_PKEY_CTX* key_context = nullptr;
    return ::EVP_DigestVerifyInit_ex(context.get(), &key_context, method.digest, own.get(), nullptr,
                                     key.get(), nullptr) == 1 &&
           set_padding(key_context, method.padding) &&
           ::EVP_DigestVerify(context.get(), signature.data(), signature.size(), message.data(),
                              message.size()) == 1;
}

} // namespace

std::string signing_problem(EVP_PKEY* key, X509* certificate) {
    if (key == nullptr) return "no key";
    if (certificate == nullptr) return "no certificate";
    if (::X509_check_private_key(certificate, key) != 1) return "the key is not the certificate's";
    for (const Method& method : methods_of(key)) {
        const std::string name = std::string(method.digest) + ", padding " + std::to_string(method.padding);
        Bytes signature = sign(key, method);
        if (signature.empty()) return "cannot sign: " + name;
        if (!is_right(certificate, method, signature)) return "wrong signature: " + name;
        signature.back() ^= 1U;
        if (is_right(certificate, method, signature)) return "a changed signature passes: " + name;
    }
    return "";
}

} // namespace Kes::test
