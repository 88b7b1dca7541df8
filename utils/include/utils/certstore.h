#ifndef KES_UTILS_CERTSTORE_H_
#define KES_UTILS_CERTSTORE_H_

#include <memory>
#include <string>
#include <utility>

#include "utils/error.h"
#include "utils/logger.h"

namespace Kes {

/// A named store of certificates, open as long as the object lives. The implementation knows the system:
/// it is made from the name, and has find_by_subject(), first() and next() as this class has.
///
/// Certificates that are handed out are the caller's. A search that finds nothing gives null.
template <typename CertType, typename Imp>
class CertStore {
public:
    /// Opens a store that exists. @throws ErrorBase, as the implementation's error
    static std::unique_ptr<CertStore> open(const std::string& name) {
        try {
            std::unique_ptr<CertStore> store(new CertStore(name));
            store->set_imp(std::make_unique<Imp>(name));
            return store;
        } catch (const ErrorBase& error) {
            throw ErrorBase(error); // the text is all that callers may tell stores apart by
        }
    }

    ~CertStore() {
        imp.reset();
        log_trace("destroyed CertStore [", name, "]");
    }
    CertStore(const CertStore&) = delete;
    CertStore& operator=(const CertStore&) = delete;

    /// @throws Error bad_argument for null
    void set_imp(std::unique_ptr<Imp> imp_in) {
        if (!imp_in)
            throw Error(ErrorCodeType::bad_argument, "imp is a null pointer",
                        "certstore:151 Kes::CertStore<class Kes::WinCert,class "
                        "Kes::WinCertStoreImp>::set_imp()");
        imp = std::move(imp_in);
    }

    /// The first certificate whose subject contains the text, without regard to case.
    std::unique_ptr<CertType> find_by_subject(const char* subject) const {
        return imp->find_by_subject(subject);
    }

    std::unique_ptr<CertType> first() const { return imp->first(); }

    /// The certificate behind previous, which may be deleted then.
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
