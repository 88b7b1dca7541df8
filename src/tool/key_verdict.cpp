#include "tool/key_verdict.h"

#include <algorithm>
#include <sstream>

namespace Kes::tool {
namespace {

std::string joined(const std::vector<std::string>& names) {
    std::ostringstream text;
    const char* separator = "";
    for (const std::string& name : names) {
        text << separator << name;
        separator = ", ";
    }
    return text.str();
}

std::string filter_text(const std::string& wanted, const std::vector<std::string>& present,
                        const char* extension) {
    return "not offered: the filter wants " + wanted + ", the certificate has " +
           (present.empty() ? std::string("no ") + extension : joined(present));
}

CodedText wrong_key_usage(const CfgReader& settings, const CertificateFacts* certificate) {
    const std::string code = "wrong_key_usage";
    const std::vector<std::string> present =
        certificate == nullptr ? std::vector<std::string>() : certificate->key_usages;
    const std::vector<std::string> wanted = key_usage_names(settings.get_kuse_filter());
    if (wanted.empty() && !present.empty())
        return {code, "not offered: the filter names no key usage, which no certificate with a key usage "
                      "passes; this certificate has " +
                          joined(present)};
    return {code, filter_text(wanted.empty() ? "a key usage" : joined(wanted), present, "key usage")};
}

CodedText wrong_ext_key_usage(const CfgReader& settings, const CertificateFacts* certificate) {
    const std::string oid = settings.get_xkuse_nid_filter();
    if (oid.find_first_not_of("0123456789.") != std::string::npos)
        return {
            "wrong_extended_key_usage",
            "not offered: the filter '" + oid +
                "' is not an object identifier in dotted form, such as 1.3.6.1.5.5.7.3.2, so it matches no "
                "extended key usage"};
    const std::string name = extended_key_usage_name(oid);
    std::string wanted = oid.empty() ? "an extended key usage with an empty number" : name;
    if (name != oid) wanted += " (" + oid + ")";
    const std::vector<std::string> present =
        certificate == nullptr ? std::vector<std::string>() : certificate->extended_key_usages;
    return {"wrong_extended_key_usage", filter_text(wanted, present, "extended key usage")};
}

std::string expiry_text(const CertificateFacts& certificate) {
    if (certificate.days_left == 0) return "expired today";
    if (certificate.days_left == -1) return "expired yesterday";
    return "expired " + std::to_string(-certificate.days_left) + " days ago";
}

bool contains(const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

} // namespace

CodedText describe_verdict(KeyVerdict verdict, const CfgReader& settings,
                           const CertificateFacts* certificate) {
    switch (verdict) {
    case KeyVerdict::offered:
        return {"offered", "offered"};
    case KeyVerdict::no_certificate:
        return {"no_certificate", "not offered: no certificate on the token has its id"};
    case KeyVerdict::no_key_usage:
        return {"no_key_usage", "not offered: the key usage of the certificate is not known"};
    case KeyVerdict::wrong_key_usage:
        return wrong_key_usage(settings, certificate);
    case KeyVerdict::wrong_ext_key_usage:
        return wrong_ext_key_usage(settings, certificate);
    }
    return {"unknown", "unknown"};
}

std::vector<CodedText> certificate_warnings(const CertificateFacts& certificate) {
    std::vector<CodedText> warnings;
    const auto& usages = certificate.key_usages;
    const auto& extended = certificate.extended_key_usages;
    if (certificate.is_expired) warnings.push_back({"expired", expiry_text(certificate)});
    if (certificate.is_not_yet_valid)
        warnings.push_back({"not_yet_valid", "not valid until " + certificate.not_before});
    if (!usages.empty() && !contains(usages, "digitalSignature"))
        warnings.push_back({"no_digital_signature", "no digitalSignature in key usage"});
    if (!extended.empty() && !contains(extended, "clientAuth") && !contains(extended, "anyExtendedKeyUsage"))
        warnings.push_back({"no_client_authentication", "no client authentication in extended key usage"});
    return warnings;
}

} // namespace Kes::tool
