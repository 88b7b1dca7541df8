#include "tool/login/login_fit.h"

#include <algorithm>
#include <ctime>

#include <openssl/ssl.h>

#include "tool/printable.h"
#include "utils/ossl_helper.h"

namespace Kes::tool {
namespace {

using Misfits = std::vector<CodedText>;

/// The server's algorithms that the key can sign with.
bool has_common_algorithm(const CertificateRequest& request, const KeyAbilities& abilities, int protocol) {
    const auto& known = signature_algorithms();
    return std::any_of(known.begin(), known.end(), [&](const SignatureAlgorithm& algorithm) {
        const auto& accepted = request.algorithms;
        return std::find(accepted.begin(), accepted.end(), algorithm.number) != accepted.end() &&
               can_sign(abilities, algorithm, protocol);
    });
}

std::string names_of_abilities(const KeyAbilities& abilities, int protocol) {
    std::string names;
    for (const SignatureAlgorithm& algorithm : signature_algorithms())
        if (can_sign(abilities, algorithm, protocol))
            names += (names.empty() ? "" : ", ") + std::string(algorithm.name);
    return names.empty() ? "none of this TLS version" : names;
}

void check_algorithms(Misfits& misfits, const CertificateRequest& request, const KeyAbilities& abilities,
                      int protocol) {
    if (has_common_algorithm(request, abilities, protocol)) return;
    std::string text = "the server accepts no signature algorithm of this key, whose algorithms are: " +
                       names_of_abilities(abilities, protocol);
    if (protocol >= TLS1_3_VERSION && has_common_algorithm(request, abilities, TLS1_2_VERSION))
        text += "; with TLS 1.2 there is one (--tls 1.2)";
    misfits.push_back({"no_algorithm", text});
}

void check_issuer(Misfits& misfits, const CertificateRequest& request, X509* certificate) {
    if (request.authorities.empty() || request.names_issuer) return;
    misfits.push_back({"unknown_issuer",
                       "the certificate's issuer is not among the authorities that the server accepts: " +
                           printable(OsslHelper::cert_name_to_str(certificate, OsslHelper::issuer), 200)});
}

} // namespace

std::vector<CodedText> find_misfits(const LoginReport& report, const KeyAbilities& abilities,
                                    X509* certificate) {
    Misfits misfits;
    check_algorithms(misfits, *report.request, abilities, report.protocol);
    check_issuer(misfits, *report.request, certificate);
    const CertificateFacts facts = read_facts(certificate, CertKeyUsage(certificate), std::time(nullptr));
    for (const CodedText& warning : certificate_warnings(facts))
        misfits.push_back({warning.code, "the certificate: " + warning.text});
    return misfits;
}

} // namespace Kes::tool
