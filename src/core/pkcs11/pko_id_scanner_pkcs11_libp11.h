#ifndef KES_PKCS11_PKO_ID_SCANNER_PKCS11_LIBP11_H_
#define KES_PKCS11_PKO_ID_SCANNER_PKCS11_LIBP11_H_

#include <libp11.h>
#include <memory>

#include "base/pko_id_list.h"
#include "pkcs11/libp11_helper.h"
#include "pkcs11/token_key_report.h"

namespace Kes {

/// Finds the objects on a PKCS#11 token. Adds, in this order: every certificate; every private key with a
/// certificate that has the same object id and passes the filter; every public key.
///
/// The name of a record is a "pkcs11:" URI (RFC 7512) for libp11's engine, with token label, object id and
/// type. The token label is not percent-encoded: if it contains ";" or "%", the engine does not find the
/// object.
class Pkcs11Libp11PkoIdScanner final : public PkoIdScanner {
public:
    /// @param libp11_in  borrowed; must outlive this scanner
    Pkcs11Libp11PkoIdScanner(Libp11Init* libp11_in, std::unique_ptr<CertKeyUsageFilter> filter);
    ~Pkcs11Libp11PkoIdScanner() override;

    /// Logs in if the token requires it, unless the login is skipped, and then only calls libp11's three enumeration functions.
    /// @throws Error null_pointer without a list, and the errors of Libp11Init and libp11
    void scan(const Pin& pin) override;

private:
    void add_certificates(PKCS11_TOKEN* token, TokenKeyReport& report);
    void add_private_keys(PKCS11_TOKEN* token, TokenKeyReport& report);
    void add_public_keys(PKCS11_TOKEN* token);
    KeyVerdict judge(const PkoId& private_key) const;

    template <typename Object>
    std::unique_ptr<PkoId> make_record(const PKCS11_TOKEN* token, PkoType type, const Object& object,
                                       std::unique_ptr<const CertKeyUsage> key_usage) const;

    Libp11Init* libp11;
};

} // namespace Kes

#endif // KES_PKCS11_PKO_ID_SCANNER_PKCS11_LIBP11_H_
