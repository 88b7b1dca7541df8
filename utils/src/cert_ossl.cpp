#include "utils/cert_ossl.h"

#include <algorithm>

#include "utils/error.h"
#include "utils/helper.h"
#include "utils/logger.h"
#include "utils/ossl_helper.h"

namespace Kes {
namespace {

// In bytes. Far larger than any certificate on a card.
constexpr std::size_t encode_buffer_size = 1024UL * 1024UL;

X509* decode(const std::vector<unsigned char>& der) {
    // d2i_X509() expects a valid pointer, and data() of an empty vector may return null.
    static constexpr unsigned char empty_input = 0;
    const unsigned char* next = der.empty() ? &empty_input : der.data();
    return ::d2i_X509(nullptr, &next, static_cast<long>(der.size()));
}

} // namespace

OsslCert::OsslCert(const std::vector<unsigned char>& der) : x509_(decode(der)) {
    if (!x509_)
        throw OsslError(OsslErrorCode(0), "error converting certificate from DER to X509 format",
                        "cert_ossl:55 Kes::OsslCert::OsslCert()");
    log_trace("created OsslCert [x509=", PointerText{x509_.get()}, "]");
}

OsslCert::~OsslCert() {
    const void* freed = x509_.get(); // for the log only
    x509_.reset();
    log_trace("destroyed OsslCert [x509=", PointerText{freed}, "]");
}

std::vector<unsigned char> OsslCert::get_der_data() const {
    // i2d_X509() does not know the size of the buffer. An encoding that is longer than the usual buffer,
    // which only a malicious token would contain, gets a buffer of its own size.
    const int needed = ::i2d_X509(x509_.get(), nullptr);
    std::vector<unsigned char> der(
        std::max(encode_buffer_size, static_cast<std::size_t>(std::max(needed, 0))));
    unsigned char* next = der.data();
    const int length = needed < 0 ? needed : ::i2d_X509(x509_.get(), &next);
    if (length < 0)
        throw OsslError(OsslErrorCode(length), "error converting certificate to DER format",
                        "cert_ossl:127 Kes::OsslCert::get_der_data()");
    der.resize(static_cast<std::size_t>(length));
    return der;
}

void OsslCert::write_der_file(const std::string& file_name) const {
    Helper::write_file(file_name, get_der_data());
}

std::string OsslCert::get_subject_name() const {
    return OsslHelper::cert_name_to_str(x509_.get(), OsslHelper::subject);
}

std::string OsslCert::get_issuer_name() const {
    return OsslHelper::cert_name_to_str(x509_.get(), OsslHelper::issuer);
}

std::string OsslCert::get_subject_name_simple() const { return get_subject_name(); }

std::string OsslCert::get_issuer_name_simple() const { return get_issuer_name(); }

} // namespace Kes
