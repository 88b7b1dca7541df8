#include "certificates.h"

#include <cstdio>
#include <openssl/pem.h>
#include <stdexcept>

#include "support.h"

namespace Kes::test {
namespace {

template <typename Read>
auto read_pem(const std::filesystem::path& file, Read read) {
    const BioPtr bio(::BIO_new_file(file.string().c_str(), "r"));
    auto* object = bio ? read(bio.get(), nullptr, nullptr, nullptr) : nullptr;
    if (object == nullptr) throw std::runtime_error("cannot read " + file.string());
    return object;
}

} // namespace

Bytes der_of(const X509* certificate) {
    return certificate == nullptr ? Bytes() : der_by(::i2d_X509, certificate);
}

Bytes public_key_der(const EVP_PKEY* key) { return der_by(::i2d_PUBKEY, key); }

Bytes public_key_of(const Bytes& certificate) {
    const unsigned char* next = certificate.data();
    const X509Ptr x509(::d2i_X509(nullptr, &next, static_cast<long>(certificate.size())));
    return public_key_der(::X509_get0_pubkey(x509.get()));
}

Bytes read_bytes(const std::filesystem::path& file) {
    const std::string content = read_file(file.string());
    if (content.empty()) throw std::runtime_error("nothing in " + file.string());
    return {content.begin(), content.end()};
}

X509Ptr read_pem_certificate(const std::filesystem::path& file) {
    return X509Ptr(read_pem(file, ::PEM_read_bio_X509));
}

EvpPkeyPtr read_pem_key(const std::filesystem::path& file) {
    return EvpPkeyPtr(read_pem(file, ::PEM_read_bio_PrivateKey));
}

void expire_certificate(const std::filesystem::path& file) {
    const std::string name = file.string();
    const EvpPkeyPtr key = read_pem_key(name + ".key");
    const X509Ptr certificate = read_pem_certificate(name + ".crt");
    ::X509_gmtime_adj(::X509_getm_notAfter(certificate.get()), -24L * 60 * 60);
    const BioPtr output(::BIO_new_file((name + ".crt").c_str(), "w"));
    if (::X509_sign(certificate.get(), key.get(), ::EVP_sha256()) == 0 || !output ||
        ::PEM_write_bio_X509(output.get(), certificate.get()) != 1)
        throw std::runtime_error("cannot write " + name + ".crt");
}

Bytes with_number(Bytes certificate, int number) {
    const std::string before = "Number 0000";
    char after[16];
    std::snprintf(after, sizeof after, "Number %04d", number);
    auto at = certificate.begin();
    while ((at = std::search(at, certificate.end(), before.begin(), before.end())) != certificate.end())
        at = std::copy_n(after, before.size(), at);
    return certificate;
}

} // namespace Kes::test
