#include "scripted_scard.h"

namespace {
Kes::OsslScardIf* the_card = nullptr;
}

Kes::OsslScardIf* get_ossl_scard_if() { return the_card; }

namespace Kes::test {

ScriptedScard::ScriptedScard() : key(create_key()), cert(create_certificate(key.get())) { the_card = this; }

ScriptedScard::~ScriptedScard() { the_card = nullptr; }

int ScriptedScard::call(const std::string& operation, const std::string& details) {
    calls.push_back(operation + details);
    const auto failure = failures.find(operation);
    last_error = failure == failures.end() ? "" : failure->second;
    return failure == failures.end() ? 0 : 1;
}

int ScriptedScard::version_check(unsigned int version) {
    return call("version_check", " " + std::to_string(version));
}

int ScriptedScard::set_pin(const char* pin) {
    if (watch_pin) watch_pin(pin);
    return call("set_pin", " " + std::string(pin));
}

int ScriptedScard::discover_keys(std::size_t* num_keys) {
    *num_keys = keys.size();
    return call("discover_keys");
}

const char* ScriptedScard::get_key_name(std::size_t key_num) {
    return call("get_key_name") == 0 ? keys.at(key_num).name : nullptr;
}

int ScriptedScard::set_key(unsigned int key_type, const char* key_id) {
    return call("set_key", " " + std::to_string(key_type) + " " + key_id);
}

int ScriptedScard::set_key(std::size_t key_num) {
    cfg.key_type = keys.at(key_num).type;
    cfg.key_name = keys.at(key_num).key_name;
    cfg.cert_name = "certificate of the selected key";
    return call("set_key", " number " + std::to_string(key_num));
}

int ScriptedScard::ossl_get_private_key(EVP_PKEY** result) {
    *result = key.get();
    return call("ossl_get_private_key");
}

int ScriptedScard::ossl_get_certificate(X509** result) {
    *result = cert.get();
    return call("ossl_get_certificate");
}

PkeyPtr create_key() { return PkeyPtr(EVP_EC_gen("P-256"), &EVP_PKEY_free); }

CertPtr create_certificate(EVP_PKEY* key, const std::vector<std::pair<const char*, const char*>>& usages) {
    CertPtr cert(X509_new(), &X509_free);
    X509_set_version(cert.get(), X509_VERSION_3);
    ASN1_TIME_set_string(X509_getm_notBefore(cert.get()), "20240229120000Z");
    ASN1_TIME_set_string(X509_getm_notAfter(cert.get()), "99991231235959Z");
    X509_NAME* name = X509_get_subject_name(cert.get());
    const auto text = [](const char* value) { return reinterpret_cast<const unsigned char*>(value); };
    X509_NAME_add_entry_by_txt(name, "O", MBSTRING_UTF8, text("Mäkers"), -1, -1, 0);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8, text("Grace Hopper"), -1, -1, 0);
    X509_set_issuer_name(cert.get(), name);
    X509_set_pubkey(cert.get(), key);
    for (const auto& [extension_name, value] : usages) {
        X509_EXTENSION* extension = X509V3_EXT_nconf(nullptr, nullptr, extension_name, value);
        X509_add_ext(cert.get(), extension, -1);
        X509_EXTENSION_free(extension);
    }
    X509_sign(cert.get(), key, EVP_sha256());
    return cert;
}

} // namespace Kes::test
