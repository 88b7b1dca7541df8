#include "utils/certstore_win.h"

#include <utility>

#include "utils/error.h"
#include "utils/logger.h"

namespace Kes {
namespace {

/// The functions of the store return a context that the caller must free, or null.
std::unique_ptr<WinCert> take_ownership(const CERT_CONTEXT* context) {
    return context == nullptr ? nullptr : std::make_unique<WinCert>(context, true);
}

} // namespace

WinCertStoreImp::WinCertStoreImp(std::string name_in)
    : name(std::move(name_in)),
      store(::CertOpenStore(CERT_STORE_PROV_SYSTEM_A, 0, 0,
                            CERT_SYSTEM_STORE_CURRENT_USER | CERT_STORE_OPEN_EXISTING_FLAG, name.c_str())) {
    if (!store) {
        const WinErrorCode code(::GetLastError());
        throw WinError(code, "CertOpenStore() with name=" + name + " failed",
                       "certstore_win:61 Kes::WinCertStoreImp::WinCertStoreImp()");
    }
    log_trace("created WinCertStoreImp [", name, "]");
}

WinCertStoreImp::~WinCertStoreImp() {
    store.reset(); // before the log line, which reports what has happened
    log_trace("destroyed WinCertStoreImp [", name, "]");
}

void WinCertStoreImp::StoreTraits::close(Raw store) noexcept {
    if (::CertCloseStore(store, 0) == TRUE) return;
    const WinErrorCode code(::GetLastError());
    log_error(WinError(code, "CertCloseStore() failed", "").what());
}

std::unique_ptr<WinCert> WinCertStoreImp::find_by_subject(const char* subject) const {
    return take_ownership(::CertFindCertificateInStore(store.get(), X509_ASN_ENCODING, 0,
                                                       CERT_FIND_SUBJECT_STR_A, subject, nullptr));
}

std::unique_ptr<WinCert> WinCertStoreImp::first() const {
    return take_ownership(::CertEnumCertificatesInStore(store.get(), nullptr));
}

std::unique_ptr<WinCert> WinCertStoreImp::next(const WinCert& previous) const {
    // The function frees the context that it receives, but previous still needs its own.
    const CERT_CONTEXT* duplicate = ::CertDuplicateCertificateContext(previous.context());
    return take_ownership(::CertEnumCertificatesInStore(store.get(), duplicate));
}

} // namespace Kes
