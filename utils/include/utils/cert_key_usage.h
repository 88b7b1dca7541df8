#ifndef KES_UTILS_CERT_KEY_USAGE_H_
#define KES_UTILS_CERT_KEY_USAGE_H_

#include <cstdint>
#include <openssl/x509.h>
#include <ostream>
#include <string>
#include <vector>

#include "utils/cert.h"

namespace Kes {

/// What a certificate says its key may be used for. RFC 5280, 4.2.1.3 and 4.2.1.12.
class CertKeyUsage {
public:
    /// As a certificate without either extension.
    CertKeyUsage() = default;

    /// @throws Error bad_argument for a null pointer
    explicit CertKeyUsage(X509* x509);

    /// @throws OsslError when the bytes are no certificate
    explicit CertKeyUsage(const std::vector<unsigned char>& der);
    explicit CertKeyUsage(const Cert& cert);

    /// OpenSSL's KU_* bits; 0 without the extension.
    std::uint32_t kuse_mask() const noexcept { return _kuse_mask; }

    /// OpenSSL's XKU_* bits, for display only; 0 without the extension.
    std::uint32_t xkuse_mask() const noexcept { return _xkuse_mask; }

    /// The extended key usages as dotted object identifiers, in the certificate's order.
    const std::vector<std::string>& xkuse_nid_list() const noexcept { return _xkuse_nid_list; }

private:
    std::uint32_t _kuse_mask = 0;
    std::uint32_t _xkuse_mask = 0;
    std::vector<std::string> _xkuse_nid_list;
};

/// Writes four lines, each ended by a newline.
std::ostream& operator<<(std::ostream& out, const CertKeyUsage& key_usage);

/// The names of the bits joined by "|", "none" for 0; bits without a name are left out.
std::string key_usage_mask_name(std::uint32_t mask);
std::string ext_key_usage_mask_name(std::uint32_t mask);

/// How a filter judges a usage.
enum class FilterType : std::uint32_t {
    all = 0,       ///< not at all
    exact = 1,     ///< the certificate has the extension and meets the requirement
    exact_none = 2 ///< as exact, and a certificate without the extension passes too
};

/// "all", "exact", "exact_none"; "" for any other value.
std::string filter_type_name(FilterType type);

/// What is required of a certificate for its key to be offered. Values other than the named filter types are
/// judged like exact.
class CertKeyUsageFilter {
public:
    CertKeyUsageFilter(FilterType kuse_filter_type, std::uint32_t kuse_filter, FilterType xkuse_filter_type,
                       std::string xkuse_nid_filter);

    /// Whether the usage meets the requirement. Logs the result of each half that was judged.
    bool check(const CertKeyUsage& key_usage) const;

private:
    bool check_key_usage(const CertKeyUsage& key_usage) const;
    bool check_ext_key_usage(const CertKeyUsage& key_usage) const;

    FilterType kuse_filter_type;
    std::uint32_t kuse_filter;
    FilterType xkuse_filter_type;
    std::string xkuse_nid_filter;
};

} // namespace Kes

#endif // KES_UTILS_CERT_KEY_USAGE_H_
