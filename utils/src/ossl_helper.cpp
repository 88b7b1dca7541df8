#include "utils/ossl_helper.h"

#include "utils/error.h"
#include "utils/ossl_ptr.h"

namespace Kes {

std::string OsslHelper::cert_name_to_str(X509* cert, int which) {
    if (cert == nullptr)
        throw Error(ErrorCodeType::bad_argument, "cert is a null pointer",
                    "ossl_helper:110 Kes::OsslHelper::cert_name_to_str()");
    constexpr int indent = 2; // OpenSSL 3 ignores it with XN_FLAG_COMPAT
    // Not checked for null: X509_NAME_print_ex() then fails and is reported.
    const BioPtr memory(::BIO_new(::BIO_s_mem()));
    const X509_NAME* name = which == subject ? ::X509_get_subject_name(cert) : ::X509_get_issuer_name(cert);
    const int result = ::X509_NAME_print_ex(memory.get(), name, indent, XN_FLAG_COMPAT);
    if (result != 1)
        throw OsslError(OsslErrorCode(result), "X509_NAME_print_ex() failed",
                        "ossl_helper:123 Kes::OsslHelper::cert_name_to_str()");
    char* data = nullptr;
    const long length = BIO_get_mem_data(memory.get(), &data);
    return data == nullptr ? std::string() : std::string(data, static_cast<std::size_t>(length));
}

} // namespace Kes
