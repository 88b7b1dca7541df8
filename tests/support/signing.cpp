#include "signing.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <algorithm>
#include <array>
#include <memory>

#include "error_lines.h"
#include "utils/ossl_ptr.h"

namespace Kes::test {
namespace {

using MdPtr = std::unique_ptr<EVP_MD_CTX, FreeWith<&::EVP_MD_CTX_free>>;
using LibraryContextPtr = std::unique_ptr<OSSL_LIB_CTX, FreeWith<&::OSSL_LIB_CTX_free>>;

const Bytes message{'w', 'h', 'a', 't', ' ', 'i', 's', ' ', 's', 'i', 'g', 'n', 'e', 'd'};

Bytes sign(EVP_PKEY* key, const char* digest, int padding) {
    const MdPtr context(::EVP_MD_CTX_new());
    EVP_PKEY_CTX* key_context = nullptr;
    Bytes signature(static_cast<std::size_t>(::EVP_PKEY_get_size(key)));
    std::size_t size = signature.size();
    if (::EVP_DigestSignInit(context.get(), &key_context, ::EVP_get_digestbyname(digest), nullptr, key) !=
            1 ||
        ::EVP_PKEY_CTX_set_rsa_padding(key_context, padding) != 1 ||
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

bool is_right(X509* certificate, const char* digest, int padding, const Bytes& signature) {
    const LibraryContextPtr own(::OSSL_LIB_CTX_new());
    const EvpPkeyPtr key = public_key_of(certificate, own.get());
    const MdPtr context(::EVP_MD_CTX_new());
    EVP_PKEY_CTX* key_context = nullptr;
    return ::EVP_DigestVerifyInit_ex(context.get(), &key_context, digest, own.get(), nullptr, key.get(),
                                     nullptr) == 1 &&
           ::EVP_PKEY_CTX_set_rsa_padding(key_context, padding) == 1 &&
           ::EVP_DigestVerify(context.get(), signature.data(), signature.size(), message.data(),
                              message.size()) == 1;
}

std::string problem(EVP_PKEY* key, X509* certificate, const char* digest, int padding) {
    if (key == nullptr) return "no key";
    if (certificate == nullptr) return "no certificate";
    if (::X509_check_private_key(certificate, key) != 1) return "the key is not the certificate's";
    Bytes signature = sign(key, digest, padding);
    if (signature.empty()) return queued_errors();
    if (!is_right(certificate, digest, padding, signature)) return "wrong signature";
    signature.back() ^= 1U;
    if (is_right(certificate, digest, padding, signature)) return "a changed signature passes";
    ::ERR_clear_error(); // of which that left its reasons there
    return "";
}

} // namespace

std::string signing_problem(EVP_PKEY* key, X509* certificate, int padding) {
    return problem(key, certificate, "SHA256", padding);
}

std::string signing_problem(EVP_PKEY* key, X509* certificate) {
    for (const char* digest : {"SHA256", "SHA384", "SHA512"}) {
        const std::string text = problem(key, certificate, digest, pkcs1);
        if (!text.empty()) return std::string(digest) + ": " + text;
    }
    return "";
}

} // namespace Kes::test
