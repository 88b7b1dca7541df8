#include "manager/key_backends.h"

#include "capi/capi_backend.h"
#include "pkcs11/pkcs11_backend.h"

namespace Kes {
namespace {

/// The back-end for values that CryptoIf does not define. None of its operations fails: the operation of the
/// manager that needs a scanner or an engine does.
class UnknownBackend final : public KeyBackend {
public:
    void open(const CfgReader&) override {}
    bool read_card(const CfgReader&, bool) override { return false; }
    std::unique_ptr<PkoIdScanner> create_scanner(const CfgReader&,
                                                 std::unique_ptr<CertKeyUsageFilter>) override {
        return nullptr;
    }
    std::unique_ptr<OsslEngine> create_engine(const CfgReader&, const Pin&) override { return nullptr; }
};

} // namespace

KeyBackends::KeyBackends()
    : capi(create_capi_backend()),
      pkcs11(std::make_unique<Pkcs11Backend>()),
      capi_store(create_capi_store_backend()),
      unknown(std::make_unique<UnknownBackend>()) {}

KeyBackend& KeyBackends::select(OsslScardCfg::CryptoIf crypto_if) const noexcept {
    switch (crypto_if) {
    case OsslScardCfg::capi:
        return *capi;
    case OsslScardCfg::pkcs11:
        return *pkcs11;
    case OsslScardCfg::capi_store:
        return *capi_store;
    }
    return *unknown;
}

} // namespace Kes
