#include <map>
#include <memory>
#include <openssl/ssl.h>
#include <string>

#include "tool/doctor/checks.h"
#include "tool/doctor/tls_abilities.h"
#include "tool/printable.h"
#include "utils/error.h"
#include "utils/ossl_ptr.h"

namespace Kes::tool {
namespace {

constexpr const char* pkcs1 = "rsa_pkcs1_sha256, rsa_pkcs1_sha384 and rsa_pkcs1_sha512";
constexpr const char* pss = "rsa_pss_rsae_sha256, rsa_pss_rsae_sha384 and rsa_pss_rsae_sha512";

/// TLS 1.3 ties each curve to one signature algorithm (RFC 8446, section 4.2.3).
const std::map<std::string, std::string> tls13_curves{{"prime256v1", "ecdsa_secp256r1_sha256"},
                                                      {"secp384r1", "ecdsa_secp384r1_sha384"},
                                                      {"secp521r1", "ecdsa_secp521r1_sha512"}};

TlsAbilities abilities_of_ec(const std::string& curve) {
    const auto known = tls13_curves.find(curve);
    if (known == tls13_curves.end())
        return {true, false, "TLS 1.2 only, because TLS 1.3 has no signatures with " + curve};
    return {true, true, "TLS 1.2 and 1.3 with " + known->second};
}

using SslCtxPtr = std::unique_ptr<SSL_CTX, FreeWith<&::SSL_CTX_free>>;

} // namespace

TlsAbilities tls_abilities(OsslScardCfg::CryptoIf crypto_if, const CertificateFacts& facts) {
    const bool is_pkcs11 = crypto_if == OsslScardCfg::pkcs11;
    if (facts.key_type == "RSA")
        return is_pkcs11
                   ? TlsAbilities{true, true,
                                  std::string("TLS 1.2 with ") + pkcs1 + ", TLS 1.2 and 1.3 with " + pss}
                   : TlsAbilities{true, false, std::string("TLS 1.2 only, with ") + pkcs1};
    if (facts.key_type == "EC" && is_pkcs11) return abilities_of_ec(facts.curve);
    return {false, false, "no TLS: this back-end cannot use keys of the type " + facts.key_type};
}

TlsDefaults read_tls_defaults() {
    const SslCtxPtr ctx(::SSL_CTX_new(::TLS_client_method()));
    if (!ctx) throw OsslError(OsslErrorCode(0), "SSL_CTX_new() failed", "");
    return {static_cast<int>(SSL_CTX_get_min_proto_version(ctx.get())),
            static_cast<int>(SSL_CTX_get_max_proto_version(ctx.get()))};
}

Findings judge_tls(OsslScardCfg::CryptoIf crypto_if, const std::vector<SurveyedKey>& keys) {
    Findings findings;
    for (const SurveyedKey& key : keys) {
        if (!key.is_offered || !key.certificate) continue;
        const TlsAbilities abilities = tls_abilities(crypto_if, *key.certificate);
        findings.push_back({abilities.has_tls12 ? State::ok : State::error, Link::card, "TLS",
                            "the key " + printable(key.id, 120) + " can serve " + abilities.text,
                            abilities.has_tls12 ? "" : "Use an RSA key, or the back-end pkcs11"});
    }
    return findings;
}

Findings judge_tls_defaults(OsslScardCfg::CryptoIf crypto_if, const TlsDefaults& defaults) {
    if (crypto_if == OsslScardCfg::pkcs11) return {};
    const auto line = [](State state, const std::string& finding, const std::string& remedy) {
        return Findings{{state, Link::client, "TLS versions", finding, remedy}};
    };
    if (defaults.min_version >= TLS1_3_VERSION)
        return line(State::error, "openssl.cnf demands TLS 1.3, which the keys of this back-end cannot serve",
                    "Remove MinProtocol from openssl.cnf, or use the back-end pkcs11");
    if (defaults.max_version == 0 || defaults.max_version >= TLS1_3_VERSION)
        return line(
            State::warning, "OpenSSL's defaults allow TLS 1.3, which the keys of this back-end cannot serve",
            "Let the client limit itself to TLS 1.2 by SSL_CTX_set_max_proto_version(), and to RSA with "
            "PKCS#1 by SSL_CTX_set1_client_sigalgs_list()");
    return {};
}

Findings check_tls(Context& context) {
    return judge_tls(context.crypto_if(), candidate_keys(context.survey.value()));
}

Findings check_tls_versions(Context& context) {
    return judge_tls_defaults(context.crypto_if(), read_tls_defaults());
}

} // namespace Kes::tool
