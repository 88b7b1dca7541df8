#include "signing.h"

#include <memory>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include "certificates.h"
#include "utils/error_queue_mark.h"
#include "utils/ossl_ptr.h"

namespace Kes::test {
namespace {

using MdPtr = std::unique_ptr<EVP_MD_CTX, FreeWith<&::EVP_MD_CTX_free>>;
using LibraryContextPtr = std::unique_ptr<OSSL_LIB_CTX, FreeWith<&::OSSL_LIB_CTX_free>>;

SigningMethods methods_of(const EVP_PKEY* key) {
    if (::EVP_PKEY_get_base_id(key) == EVP_PKEY_RSA)
        return {{"SHA256", RSA_PKCS1_PADDING},
                {"SHA384", RSA_PKCS1_PADDING},
                {"SHA256", RSA_PKCS1_PSS_PADDING},
                {"SHA512", RSA_PKCS1_PSS_PADDING}};
    return {{"SHA256", 0}, {"SHA384", 0}};
}

const Bytes message{'w', 'h', 'a', 't', ' ', 'i', 's', ' ', 's', 'i', 'g', 'n', 'e', 'd'};

bool set_padding(EVP_PKEY_CTX* context, int padding) {
    if (padding == 0) return true;
    if (::EVP_PKEY_CTX_set_rsa_padding(context, padding) != 1) return false;
    return padding != RSA_PKCS1_PSS_PADDING ||
           ::EVP_PKEY_CTX_set_rsa_pss_saltlen(context, RSA_PSS_SALTLEN_DIGEST) == 1;
}

Bytes sign(EVP_PKEY* key, const SigningMethod& method) {
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

EvpPkeyPtr public_key_in(X509* certificate, OSSL_LIB_CTX* context) {
    const Bytes der = der_by(::i2d_X509_PUBKEY, ::X509_get_X509_PUBKEY(certificate));
    const unsigned char* next = der.data();
    return EvpPkeyPtr(::d2i_PUBKEY_ex(nullptr, &next, static_cast<long>(der.size()), context, nullptr));
}

bool is_right(X509* certificate, const SigningMethod& method, const Bytes& signature) {
    const LibraryContextPtr own(::OSSL_LIB_CTX_new());
    const EvpPkeyPtr key = public_key_in(certificate, own.get());
    const MdPtr context(::EVP_MD_CTX_new());
    EVP_PKEY_CTX* key_context = nullptr;
    return ::EVP_DigestVerifyInit_ex(context.get(), &key_context, method.digest, own.get(), nullptr,
                                     key.get(), nullptr) == 1 &&
           set_padding(key_context, method.padding) &&
           ::EVP_DigestVerify(context.get(), signature.data(), signature.size(), message.data(),
                              message.size()) == 1;
}

std::string signature_problem(X509* certificate, const SigningMethod& method, Bytes signature) {
    const ErrorQueueMark mark; // verifying a wrong signature leaves errors on the queue
    if (!is_right(certificate, method, signature)) return "wrong signature";
    signature.back() ^= 1U;
    return is_right(certificate, method, signature) ? "a changed signature passes" : "";
}

} // namespace

std::string signing_problem(EVP_PKEY* key, X509* certificate, const SigningMethods& methods) {
    if (key == nullptr) return "no key";
    if (certificate == nullptr) return "no certificate";
    if (::X509_check_private_key(certificate, key) != 1) return "the key is not the certificate's";
    for (const SigningMethod& method : methods) {
        const std::string name =
            ": " + std::string(method.digest) + ", padding " + std::to_string(method.padding);
        const Bytes signature = sign(key, method);
        if (signature.empty()) return "cannot sign" + name;
        const std::string problem = signature_problem(certificate, method, signature);
        if (!problem.empty()) return problem + name;
    }
    return "";
}

std::string signing_problem(EVP_PKEY* key, X509* certificate) {
    if (key == nullptr) return "no key";
    return signing_problem(key, certificate, methods_of(key));
}

} // namespace Kes::test
