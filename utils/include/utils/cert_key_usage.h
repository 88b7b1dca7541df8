#ifndef KES_UTILS_CERT_KEY_USAGE_H_
#define KES_UTILS_CERT_KEY_USAGE_H_

#include <cstdint>
#include <openssl/x509.h>
#include <ostream>
#include <string>
#include <vector>

#include "utils/cert.h"

namespace Kes {

/// The uses that a certificate allows for its key, from the extensions key usage and extended key usage (RFC
/// 5280, sections 4.2.1.3 and 4.2.1.12). An extension from which OpenSSL reads no usage counts as absent; a
/// warning names the certificate and the extension.
class CertKeyUsage {
public:
    /// The key usage of a certificate that has neither extension.
    CertKeyUsage() = default;

    /// @throws Error bad_argument for a null pointer
    explicit CertKeyUsage(X509* x509);

    /// @throws OsslError if the bytes are not a certificate
    explicit CertKeyUsage(const std::vector<unsigned char>& der);

    /// @throws OsslError if OpenSSL cannot encode or decode the certificate
    explicit CertKeyUsage(const Cert& cert);

    /// The key usage as OpenSSL's KU_* bits; 0 without the extension.
    std::uint32_t kuse_mask() const noexcept { return _kuse_mask; }

    /// The extended key usage as OpenSSL's XKU_* bits; 0 without the extension. For display only: OpenSSL has
    /// no bits for usages that it does not know.
    std::uint32_t xkuse_mask() const noexcept { return _xkuse_mask; }

    /// The extended key usages as dotted object identifiers, in the order of the certificate.
    const std::vector<std::string>& xkuse_nid_list() const noexcept { return _xkuse_nid_list; }

private:
    std::uint32_t _kuse_mask = 0;
    std::uint32_t _xkuse_mask = 0;
    std::vector<std::string> _xkuse_nid_list;
};

/// Writes the heading "key usage:" and three lines with the values. Each line ends with a newline.
std::ostream& operator<<(std::ostream& out, const CertKeyUsage& key_usage);

/// The names of the bits, joined by "|"; "none" for 0. Bits without a name are left out.
std::string key_usage_mask_name(std::uint32_t mask);
std::string ext_key_usage_mask_name(std::uint32_t mask);

/// How a filter checks one of the two extensions.
enum class FilterType : std::uint32_t {
    all = 0,       ///< every certificate passes
    exact = 1,     ///< a certificate passes if it has the extension and meets the requirement
    exact_none = 2 ///< like exact, and a certificate without the extension passes too
};

/// The name of a filter type: "all", "exact" or "exact_none"; "" for any other value.
std::string filter_type_name(FilterType type);

/// The decision of a filter. If both extensions are wrong, it names the key usage, which is checked first.
enum class UsageVerdict { fits, wrong_key_usage, wrong_ext_key_usage };

/// Decides by the key usage of a certificate whether the client is offered its key. Filter types without a
/// name have the effect of exact.
class CertKeyUsageFilter {
public:
    /// @param kuse_filter       the required KU_* bits; 0 rejects every certificate that has a key usage
    /// @param xkuse_nid_filter  the required extended key usage as a dotted object identifier
    CertKeyUsageFilter(FilterType kuse_filter_type, std::uint32_t kuse_filter, FilterType xkuse_filter_type,
                       std::string xkuse_nid_filter);

    /// Whether both extensions pass. Logs the result of each check; the second check is skipped if the first
    /// one fails.
    bool check(const CertKeyUsage& key_usage) const { return judge(key_usage) == UsageVerdict::fits; }

    /// Like check(), but tells which extension does not pass.
    UsageVerdict judge(const CertKeyUsage& key_usage) const;

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
