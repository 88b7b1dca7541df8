#ifndef KES_PKCS11_PKCS11_BACKEND_H_
#define KES_PKCS11_PKCS11_BACKEND_H_

#include <memory>
#include <vector>

#include "base/key_backend.h"
#include "pkcs11/libp11_helper.h"

namespace Kes {

/// Keys on a PKCS#11 token. Owns the library's libp11 context from open() until this object is destroyed,
/// even while another back-end is selected. The engine does not need the context.
///
/// Before open(), all operations but create_engine() throw Error not_initialized.
class Pkcs11Backend final : public KeyBackend {
public:
    void open(const CfgReader& settings) override;
    bool read_card(const CfgReader& settings, bool is_engine_loaded) override;
    std::vector<TokenInfo> tokens() const override;
    std::unique_ptr<PkoIdScanner> create_scanner(const CfgReader& settings,
                                                 std::unique_ptr<CertKeyUsageFilter> filter) override;
    std::unique_ptr<OsslEngine> create_engine(const CfgReader& settings, const Pin& pin) override;

private:
    Libp11Init& require_libp11() const;

    std::unique_ptr<Libp11Init> libp11;
};

} // namespace Kes

#endif // KES_PKCS11_PKCS11_BACKEND_H_
