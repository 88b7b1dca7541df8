#include "utils/cert_key_usage.h"

#include <algorithm>
#include <array>
#include <memory>
#include <openssl/objects.h>
#include <openssl/x509v3.h>

#include "utils/cert_ossl.h"
#include "utils/error.h"
#include "utils/error_queue_mark.h"
#include "utils/logger.h"
#include "utils/ossl_helper.h"
#include "utils/ossl_ptr.h"
#include "utils/text_helper.h"

namespace Kes {
namespace {

// The order is the order in the log: by the bit's value, from encipher_only (1) to decipher_only (0x8000).
constexpr std::array key_usage_names{
    BitName{KU_ENCIPHER_ONLY, "encipher_only"},         BitName{KU_CRL_SIGN, "crl_sign"},
    BitName{KU_KEY_CERT_SIGN, "key_cert_sign"},         BitName{KU_KEY_AGREEMENT, "key_agreement"},
    BitName{KU_DATA_ENCIPHERMENT, "data_encipherment"}, BitName{KU_KEY_ENCIPHERMENT, "key_encipherment"},
    BitName{KU_NON_REPUDIATION, "non_repudiation"},     BitName{KU_DIGITAL_SIGNATURE, "digital_signature"},
    BitName{KU_DECIPHER_ONLY, "decipher_only"}};

constexpr std::array ext_key_usage_names{BitName{XKU_SSL_SERVER, "ssl_server"},
                                         BitName{XKU_SSL_CLIENT, "ssl_client"},
                                         BitName{XKU_SMIME, "smime"},
                                         BitName{XKU_CODE_SIGN, "code_sign"},
                                         BitName{XKU_SGC, "sgc"},
                                         BitName{XKU_OCSP_SIGN, "ocsp_sign"},
                                         BitName{XKU_TIMESTAMP, "timestamp"},
                                         BitName{XKU_DVCS, "dvcs"},
                                         BitName{XKU_ANYEKU, "anyeku"}};

/// OpenSSL returns all bits if the certificate lacks the extension. Such a mask would pass every filter.
std::uint32_t zero_if_absent(std::uint32_t mask) { return mask == 0xffffffffU ? 0 : mask; }

void free_objects(EXTENDED_KEY_USAGE* objects) { sk_ASN1_OBJECT_pop_free(objects, ::ASN1_OBJECT_free); }

using ExtKeyUsagePtr = std::unique_ptr<EXTENDED_KEY_USAGE, FreeWith<&free_objects>>;

/// Returns no names if the certificate lacks the extension or if OpenSSL cannot decode it.
std::vector<std::string> read_ext_key_usages(X509* x509) {
    constexpr int always_dotted = 1; // even if OpenSSL knows a name for the identifier
    std::vector<std::string> names;
    int critical = 0;
    const ExtKeyUsagePtr objects(
        static_cast<EXTENDED_KEY_USAGE*>(::X509_get_ext_d2i(x509, NID_ext_key_usage, &critical, nullptr)));
    if (!objects) return names;
    for (int i = 0; i < sk_ASN1_OBJECT_num(objects.get()); ++i) {
        std::array<char, 1024> text{};
        ::OBJ_obj2txt(text.data(), static_cast<int>(text.size()), sk_ASN1_OBJECT_value(objects.get(), i),
                      always_dotted);
        names.emplace_back(text.data());
    }
    return names;
}

/// The subject for a log line; "" if OpenSSL cannot print it, because a warning must not become an error.
std::string subject_of(X509* x509) {
    try {
        return OsslHelper::cert_name_to_str(x509, OsslHelper::subject);
    } catch (const ErrorBase&) {
        return "";
    }
}

/// Warns if the certificate has the extension. Call it for an extension from which no usage was read: a filter
/// of type exact_none lets it pass like an absent one, although it may forbid the use. The extension may be
/// broken or occur twice, or OpenSSL may consider the certificate invalid because of another extension.
void warn_if_present(X509* x509, int nid, const char* name) {
    if (::X509_get_ext_by_NID(x509, nid, -1) < 0) return;
    log_warn("no usage can be read from the ", name, " extension of certificate '", subject_of(x509),
             "'; the extension counts as absent");
}

} // namespace

CertKeyUsage::CertKeyUsage(X509* x509) {
    if (x509 == nullptr)
        throw Error(ErrorCodeType::bad_argument, "x509 is a null pointer",
                    "cert_key_usage:49 Kes::CertKeyUsage::CertKeyUsage()");
    // A broken extension is not an error. OpenSSL's reports about it must not appear in a later error's text.
    const ErrorQueueMark mark;
    _kuse_mask = zero_if_absent(::X509_get_key_usage(x509));
    _xkuse_mask = zero_if_absent(::X509_get_extended_key_usage(x509));
    _xkuse_nid_list = read_ext_key_usages(x509);
    if (_kuse_mask == 0) warn_if_present(x509, NID_key_usage, "key usage");
    if (_xkuse_nid_list.empty()) warn_if_present(x509, NID_ext_key_usage, "extended key usage");
}

CertKeyUsage::CertKeyUsage(const std::vector<unsigned char>& der) : CertKeyUsage(OsslCert(der).x509()) {}

CertKeyUsage::CertKeyUsage(const Cert& cert) : CertKeyUsage(cert.get_der_data()) {}

std::ostream& operator<<(std::ostream& out, const CertKeyUsage& key_usage) {
    out << "key usage:\n";
    out << "  _kuse_mask=\"" << key_usage_mask_name(key_usage.kuse_mask()) << "\" (0x"
        << TextHelper::to_hex(key_usage.kuse_mask()).data() << ")\n";
    out << "  _xkuse_mask=\"" << ext_key_usage_mask_name(key_usage.xkuse_mask()) << "\" (0x"
        << TextHelper::to_hex(key_usage.xkuse_mask()).data() << ")\n";
    out << "  _xkuse_nid_list=\"";
    const char* separator = "";
    for (const std::string& name : key_usage.xkuse_nid_list()) {
        out << separator << name;
        separator = ",";
    }
    return out << "\"\n";
}

std::string key_usage_mask_name(std::uint32_t mask) { return TextHelper::mask_names(mask, key_usage_names); }

std::string ext_key_usage_mask_name(std::uint32_t mask) {
    return TextHelper::mask_names(mask, ext_key_usage_names);
}

std::string filter_type_name(FilterType type) {
    switch (type) {
    case FilterType::all:
        return "all";
    case FilterType::exact:
        return "exact";
    case FilterType::exact_none:
        return "exact_none";
    }
    return "";
}

CertKeyUsageFilter::CertKeyUsageFilter(FilterType kuse_filter_type_in, std::uint32_t kuse_filter_in,
                                       FilterType xkuse_filter_type_in, std::string xkuse_nid_filter_in)
    : kuse_filter_type(kuse_filter_type_in),
      kuse_filter(kuse_filter_in),
      xkuse_filter_type(xkuse_filter_type_in),
      xkuse_nid_filter(std::move(xkuse_nid_filter_in)) {}

UsageVerdict CertKeyUsageFilter::judge(const CertKeyUsage& key_usage) const {
    const bool is_key_usage_fit = check_key_usage(key_usage);
    log_info("key usage check returned: ", is_key_usage_fit);
    if (!is_key_usage_fit) return UsageVerdict::wrong_key_usage;
    const bool is_ext_key_usage_fit = check_ext_key_usage(key_usage);
    log_info("extended key usage check returned: ", is_ext_key_usage_fit);
    return is_ext_key_usage_fit ? UsageVerdict::fits : UsageVerdict::wrong_ext_key_usage;
}

bool CertKeyUsageFilter::check_key_usage(const CertKeyUsage& key_usage) const {
    if (kuse_filter_type == FilterType::all) return true;
    if (key_usage.kuse_mask() == 0) return kuse_filter_type == FilterType::exact_none;
    // A filter of 0 is taken for a mistake. It must not let every certificate pass.
    return kuse_filter != 0 && (key_usage.kuse_mask() & kuse_filter) == kuse_filter;
}

bool CertKeyUsageFilter::check_ext_key_usage(const CertKeyUsage& key_usage) const {
    if (xkuse_filter_type == FilterType::all) return true;
    // Not the mask: it has no bits for usages that OpenSSL does not know.
    const auto& names = key_usage.xkuse_nid_list();
    if (names.empty()) return xkuse_filter_type == FilterType::exact_none;
    return std::find(names.begin(), names.end(), xkuse_nid_filter) != names.end();
}

} // namespace Kes
