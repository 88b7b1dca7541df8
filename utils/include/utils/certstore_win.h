#ifndef KES_UTILS_CERTSTORE_WIN_H_
#define KES_UTILS_CERTSTORE_WIN_H_

#include <memory>
#include <string>

#include "utils/cert_win.h"
#include "utils/certstore.h"
#include "utils/unique_handle.h"
#include "utils/windows_api.h"

namespace Kes {

/// A system certificate store of the current Windows user, such as "MY". The base for WinCertStore; CertStore
/// describes the operations.
class WinCertStoreImp {
public:
    /// @throws WinError if the user has no store of that name
    explicit WinCertStoreImp(std::string name_in);
    ~WinCertStoreImp();
    WinCertStoreImp(const WinCertStoreImp&) = delete;
    WinCertStoreImp& operator=(const WinCertStoreImp&) = delete;

    std::unique_ptr<WinCert> find_by_subject(const char* subject) const;
    std::unique_ptr<WinCert> first() const;
    std::unique_ptr<WinCert> next(const WinCert& previous) const;

private:
    struct StoreTraits {
        using Raw = HCERTSTORE;
        static void close(Raw store) noexcept; // also closes a store whose certificates are still in use
    };

    const std::string name;
    UniqueHandle<StoreTraits> store;
};

using WinCertStore = CertStore<WinCert, WinCertStoreImp>;

} // namespace Kes

#endif // KES_UTILS_CERTSTORE_WIN_H_
