#ifndef KES_PKCS11_PKO_ID_SCANNER_PKCS11_LIBP11_H_
#define KES_PKCS11_PKO_ID_SCANNER_PKCS11_LIBP11_H_

#include <libp11.h>
#include <memory>

#include "base/pko_id_list.h"
#include "pkcs11/libp11_helper.h"

namespace Kes {

/// Finds what a PKCS#11 token holds. Records, in this order: every certificate, the private keys whose
/// certificate has the same object id and passes the filter, every public key.
///
/// A record's name is a "pkcs11:" URI (RFC 7512) of token label, object id and type, as libp11's engine reads
/// it. The token label stands in it as it is: a label with ";" or "%" makes a URI that the engine does not
/// find.
class Pkcs11Libp11PkoIdScanner final : public PkoIdScanner {
public:
    /// @param libp11_in  must outlive this scanner
    Pkcs11Libp11PkoIdScanner(Libp11Init* libp11_in, std::unique_ptr<CertKeyUsageFilter> filter);
    ~Pkcs11Libp11PkoIdScanner() override;

    /// Logs in if the token wants it, then makes libp11's three enumerations and nothing else.
    void scan(const Pin& pin) override;

private:
    void add_certificates(PKCS11_TOKEN* token);
    void add_private_keys(PKCS11_TOKEN* token);
    void add_public_keys(PKCS11_TOKEN* token);
    bool is_offered(const PkoId& private_key) const;

    template <typename Object>
    std::unique_ptr<PkoId> make_record(const PKCS11_TOKEN* token, PkoType type, const Object& object,
                                       std::unique_ptr<const CertKeyUsage> key_usage) const;

    Libp11Init* libp11;
};

} // namespace Kes

#endif // KES_PKCS11_PKO_ID_SCANNER_PKCS11_LIBP11_H_
