#include <algorithm>
#include <memory>
#include <openssl/ssl.h>
#include <optional>
#include <set>
#include <string>

#include "tool/doctor/checks.h"
#include "tool/doctor/tls_abilities.h"
#include "tool/signature_algorithms.h"
#include "utils/error.h"
#include "utils/ossl_ptr.h"

namespace Kes::tool {
namespace {

std::string listed(const std::vector<std::string>& names) {
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i)
        text += (i == 0 ? "" : i + 1 == names.size() ? " and " : ", ") + names[i];
    return text;
}

/// What the back-end can sign with by a key; none if it cannot use such keys.
std::optional<KeyAbilities> find_abilities(OsslScardCfg::CryptoIf crypto_if, const CertificateFacts& facts) {
    const bool is_pkcs11 = crypto_if == OsslScardCfg::pkcs11;
    const bool is_ec = facts.key_type == "EC";
    if (facts.key_type != "RSA" && !(is_ec && is_pkcs11)) return std::nullopt;
    return abilities_of(is_ec, facts.curve, !is_pkcs11);
}

/// Versions and signature algorithms, as TLS names them. Those with SHA-1 are left out, because OpenSSL
/// refuses them unless its security level is lowered.
std::string describe_abilities(const KeyAbilities& abilities, const std::string& curve) {
    std::vector<std::string> both;
    std::vector<std::string> only_tls12;
    for (const SignatureAlgorithm& algorithm : signature_algorithms()) {
        if (std::string(algorithm.digest) == "SHA1") continue;
        if (can_sign(abilities, algorithm, TLS1_3_VERSION))
            both.emplace_back(algorithm.name);
        else if (can_sign(abilities, algorithm, TLS1_2_VERSION))
            only_tls12.emplace_back(algorithm.name);
    }
    if (both.empty())
        return "TLS 1.2 only, with " + listed(only_tls12) +
               (abilities.is_ec ? ", because TLS 1.3 has no signatures with " + curve : "");
    return "TLS 1.2 with " + listed(only_tls12) + ", TLS 1.2 and 1.3 with " + listed(both);
}

/// The offered keys with a certificate; of those with the same id, the first one, which the id selects.
std::vector<SurveyedKey> selectable_keys(const std::vector<SurveyedKey>& keys) {
    std::vector<SurveyedKey> selectable;
    std::set<std::string> ids;
    for (const SurveyedKey& key : keys)
        if (key.is_offered && key.certificate && ids.insert(key.id).second) selectable.push_back(key);
    return selectable;
}

using SslCtxPtr = std::unique_ptr<SSL_CTX, FreeWith<&::SSL_CTX_free>>;

} // namespace

TlsDefaults read_tls_defaults() {
    const SslCtxPtr ctx(::SSL_CTX_new(::TLS_client_method()));
    if (!ctx) throw OsslError(OsslErrorCode(0), "SSL_CTX_new() failed", "");
    return {static_cast<int>(SSL_CTX_get_min_proto_version(ctx.get())),
            static_cast<int>(SSL_CTX_get_max_proto_version(ctx.get()))};
}

Findings judge_tls(OsslScardCfg::CryptoIf crypto_if, const std::vector<SurveyedKey>& keys) {
    const std::vector<SurveyedKey> selectable = selectable_keys(keys);
    const bool can_any = std::any_of(selectable.begin(), selectable.end(), [&](const SurveyedKey& key) {
        return find_abilities(crypto_if, *key.certificate).has_value();
    });
    Findings findings;
    for (const SurveyedKey& key : selectable) {
        const Text name = Text("the key ").add(text_of_id(crypto_if, key.id)).add(" can serve ");
        const auto abilities = find_abilities(crypto_if, *key.certificate);
        if (abilities)
            findings.push_back({State::ok, Link::card, "TLS",
                                Text(name).add(describe_abilities(*abilities, key.certificate->curve)), ""});
        else
            findings.push_back({can_any ? State::warning : State::error, Link::card, "TLS",
                                Text(name).add("no TLS: this back-end cannot use keys of the type " +
                                               key.certificate->key_type),
                                "Use an RSA key, or the back-end pkcs11"});
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
