#ifndef KES_UTILS_CERTSTORE_H_
#define KES_UTILS_CERTSTORE_H_

#include <memory>
#include <string>
#include <utility>

#include "utils/error.h"
#include "utils/logger.h"

namespace Kes {

/// A named certificate store, which stays open as long as the object exists.
///
/// Imp contains the code for the operating system. It is constructed from the name, and has operations
/// find_by_subject(), first() and next() with the signatures of this class.
///
/// The caller owns the certificates that the operations return. They return null if no certificate is found.
template <typename CertType, typename Imp>
class CertStore {
public:
    /// Opens an existing store; does not create one.
    /// @throws ErrorBase with the text of the implementation's error
    static std::unique_ptr<CertStore> open(const std::string& name) {
        try {
            std::unique_ptr<CertStore> store(new CertStore(name));
            store->set_imp(std::make_unique<Imp>(name));
            return store;
        } catch (const ErrorBase& error) {
            // Keeps only the text, so that callers cannot depend on the implementation's error type.
            throw ErrorBase(error);
        }
    }

    ~CertStore() {
        imp.reset();
        log_trace("destroyed CertStore [", name, "]");
    }
    CertStore(const CertStore&) = delete;
    CertStore& operator=(const CertStore&) = delete;

    /// Sets the implementation. Only open() calls it; every other operation needs it.
    /// @throws Error bad_argument for a null pointer
    void set_imp(std::unique_ptr<Imp> imp_in) {
        if (!imp_in)
            throw Error(ErrorCodeType::bad_argument, "imp is a null pointer",
                        "certstore:151 Kes::CertStore<class Kes::WinCert,class "
                        "Kes::WinCertStoreImp>::set_imp()");
        imp = std::move(imp_in);
    }

    /// Returns the first certificate whose subject contains the text. The comparison ignores case.
    std::unique_ptr<CertType> find_by_subject(const char* subject) const {
        return imp->find_by_subject(subject);
    }

    /// Starts an enumeration of the certificates.
    std::unique_ptr<CertType> first() const { return imp->first(); }

    /// Returns the certificate that follows previous, which the caller may delete afterwards.
    std::unique_ptr<CertType> next(const CertType& previous) const { return imp->next(previous); }

private:
    explicit CertStore(std::string name_in) : name(std::move(name_in)) {
        log_trace("created CertStore [", name, "]");
    }

    const std::string name;
    std::unique_ptr<Imp> imp;
};

} // namespace Kes

#endif // KES_UTILS_CERTSTORE_H_
