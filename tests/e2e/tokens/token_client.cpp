#include "token_client.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <openssl/rsa.h>
#include <sys/wait.h>
#include <unistd.h>
#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace Kes::test {
namespace {

struct Method {
    const char* digest;
    int padding; // 0 where the key type has none
};

std::vector<Method> methods_of(EVP_PKEY* key) {
    if (::EVP_PKEY_get_base_id(key) == EVP_PKEY_RSA)
        return {
            {"SHA256", RSA_PKCS1_PADDING}, {"SHA384", RSA_PKCS1_PADDING}, {"SHA256", RSA_PKCS1_PSS_PADDING}};
    return {{"SHA256", 0}, {"SHA384", 0}};
}

using MdPtr = std::unique_ptr<EVP_MD_CTX, decltype(&::EVP_MD_CTX_free)>;

bool set_padding(EVP_PKEY_CTX* context, int padding) {
    if (padding == 0) return true;
    if (::EVP_PKEY_CTX_set_rsa_padding(context, padding) != 1) return false;
    return padding != RSA_PKCS1_PSS_PADDING ||
           ::EVP_PKEY_CTX_set_rsa_pss_saltlen(context, RSA_PSS_SALTLEN_DIGEST) == 1;
}

constexpr unsigned char message[] = "what is to be signed";

std::vector<unsigned char> sign(EVP_PKEY* key, const Method& method) {
    const MdPtr context(::EVP_MD_CTX_new(), ::EVP_MD_CTX_free);
    EVP_PKEY_CTX* key_context = nullptr;
    const EVP_MD* digest = ::EVP_get_digestbyname(method.digest);
    std::vector<unsigned char> signature(static_cast<std::size_t>(::EVP_PKEY_get_size(key)));
    std::size_t size = signature.size();
    if (::EVP_DigestSignInit(context.get(), &key_context, digest, nullptr, key) != 1 ||
        !set_padding(key_context, method.padding) ||
        ::EVP_DigestSign(context.get(), signature.data(), &size, message, sizeof message) != 1)
        return {};
    signature.resize(size);
    return signature;
}

/// In a library context of its own, which no engine reaches.
bool is_right(X509* certificate, const Method& method, const std::vector<unsigned char>& signature) {
    const std::unique_ptr<OSSL_LIB_CTX, decltype(&::OSSL_LIB_CTX_free)> own(::OSSL_LIB_CTX_new(),
                                                                            ::OSSL_LIB_CTX_free);
    unsigned char* der = nullptr;
    const int length = ::i2d_X509_PUBKEY(::X509_get_X509_PUBKEY(certificate), &der);
    const unsigned char* next = der;
    const std::unique_ptr<EVP_PKEY, decltype(&::EVP_PKEY_free)> key(
        ::d2i_PUBKEY_ex(nullptr, &next, length, own.get(), nullptr), ::EVP_PKEY_free);
    ::OPENSSL_free(der);
    const MdPtr context(::EVP_MD_CTX_new(), ::EVP_MD_CTX_free);
    EVP_PKEY_CTX* key_context = nullptr;
    return ::EVP_DigestVerifyInit_ex(context.get(), &key_context, method.digest, own.get(), nullptr,
                                     key.get(), nullptr) == 1 &&
           set_padding(key_context, method.padding) &&
           ::EVP_DigestVerify(context.get(), signature.data(), signature.size(), message, sizeof message) ==
               1;
}

} // namespace

Client::Client() : scard(get_ossl_scard_if()), cfg(scard->get_config_default()), logfile(dir_.file("log")) {
    cfg->set_crypto_if(OsslScardCfg::pkcs11);
    cfg->set_pkcs11_module_dll(softhsm_module().c_str());
    cfg->set_pkcs11_openssl_engine_dll(pkcs11_engine().c_str());
    cfg->set_logfile(logfile.c_str());
    cfg->set_logfile_severity(63);
}

Client::~Client() { end(); }

void Client::end() {
    if (scard != nullptr) scard->destroy();
    scard = nullptr;
}

bool Client::discover(const char* pin) {
    if (!read()) return false;
    if (scard->is_pin_required() && pin != nullptr && scard->set_pin(pin) != 0) return false;
    return scard->discover_keys(&num_keys) == 0;
}

bool Client::load(const std::string& key_id) const {
    return scard->set_key(0, key_id.c_str()) == 0 && scard->notify_config_done() == 0 &&
           scard->ossl_load() == 0;
}

EVP_PKEY* Client::key() const {
    EVP_PKEY* key = nullptr;
    scard->ossl_get_private_key(&key);
    return key;
}

X509* Client::certificate() const {
    X509* certificate = nullptr;
    scard->ossl_get_certificate(&certificate);
    return certificate;
}

std::vector<std::string> Client::key_names() const {
    std::vector<std::string> names;
    for (std::size_t i = 0; i < num_keys; ++i)
        names.emplace_back(scard->get_key_name(i));
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> Client::log_lines() const {
    auto lines = split_lines(log_text());
    for (std::string& line : lines)
        line = without_header(line);
    return lines;
}

bool Client::has_logged(const std::string& line) const {
    const auto lines = log_lines();
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

#ifdef __SANITIZE_ADDRESS__
KnownLeak::KnownLeak() { ::__lsan_disable(); }
KnownLeak::~KnownLeak() { ::__lsan_enable(); }
#else
KnownLeak::KnownLeak() = default;
KnownLeak::~KnownLeak() = default;
#endif

std::string signing_problem(EVP_PKEY* key, X509* certificate) {
    if (key == nullptr) return "no key";
    if (certificate == nullptr) return "no certificate";
    for (const Method& method : methods_of(key)) {
        const std::string name = std::string(method.digest) + ", padding " + std::to_string(method.padding);
        auto signature = sign(key, method);
        if (signature.empty()) return "cannot sign: " + name;
        if (!is_right(certificate, method, signature)) return "wrong signature: " + name;
        signature.back() ^= 1U;
        if (is_right(certificate, method, signature)) return "a changed signature passes: " + name;
    }
    return "";
}

int status_of_child(const std::function<int()>& function) {
    const TempDir dir; // for what the child leaves behind when it ends in the middle
    const pid_t child = ::fork();
    if (child == 0) {
        ::setenv("TMPDIR", dir.path().c_str(), 1);
        std::exit(function());
    }
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

} // namespace Kes::test
