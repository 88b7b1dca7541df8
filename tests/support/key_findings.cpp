#include "key_findings.h"

#include <array>
#include <openssl/x509.h>

#include "support.h"

namespace Kes::test {
namespace {

const char* name_of(KeyVerdict verdict) {
    switch (verdict) {
    case KeyVerdict::offered:
        return "offered";
    case KeyVerdict::no_certificate:
        return "no certificate";
    case KeyVerdict::no_key_usage:
        return "no key usage";
    case KeyVerdict::wrong_key_usage:
        return "wrong key usage";
    case KeyVerdict::wrong_ext_key_usage:
        return "wrong extended key usage";
    }
    return "?";
}

std::string common_name(const X509* certificate) {
    std::array<char, 80> name{};
    ::X509_NAME_get_text_by_NID(::X509_get_subject_name(certificate), NID_commonName, name.data(),
                                static_cast<int>(name.size()));
    return name.data();
}

} // namespace

void KeyFindings::failed_container(const std::string& container, std::uint32_t key_type, const char* reason) {
    lines.push_back("failed container " + container + ", key type " + std::to_string(key_type) + ": " +
                    reason);
}

void KeyFindings::add(const char* what, const KeyFinding& finding) {
    std::string line = what + text_of(finding.record);
    line.pop_back(); // the line end
    line += "; ";
    line += finding.certificate == nullptr ? "no X509" : common_name(finding.certificate);
    line += "; ";
    line +=
        finding.key_usage == nullptr ? "no usage" : "usage " + std::to_string(finding.key_usage->kuse_mask());
    lines.push_back(line + "; " + name_of(finding.verdict));
}

} // namespace Kes::test
