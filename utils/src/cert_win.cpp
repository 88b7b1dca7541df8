#include "utils/cert_win.h"

#include "utils/error.h"
#include "utils/helper.h"
#include "utils/logger.h"

namespace Kes {

WinCert::WinCert(const CERT_CONTEXT* ctx_in, bool owns) : ctx(ctx_in), owned_ctx(owns ? ctx_in : nullptr) {
    // Not ErrorCodeType::null_pointer: that code means that a called function returned null.
    if (ctx == nullptr)
        throw Error(ErrorCodeType::bad_argument, "cert_ctx is a null pointer",
                    "cert_win:41 Kes::WinCert::WinCert()");
    log_trace("created WinCert [ctx=", PointerText{ctx}, "]");
}

WinCert::~WinCert() {
    owned_ctx.reset(); // before the log line, which reports what has happened
    log_trace("destroyed WinCert [ctx=", PointerText{ctx}, "]");
}

std::vector<unsigned char> WinCert::get_der_data() const {
    return {ctx->pbCertEncoded, ctx->pbCertEncoded + ctx->cbCertEncoded};
}

void WinCert::write_der_file(const std::string& file_name) const {
    Helper::write_file(file_name, get_der_data());
}

std::string WinCert::get_subject_name() const {
    return name_text(ctx->pCertInfo->Subject, CERT_X500_NAME_STR);
}

std::string WinCert::get_issuer_name() const { return name_text(ctx->pCertInfo->Issuer, CERT_X500_NAME_STR); }

std::string WinCert::get_subject_name_simple() const {
    return name_text(ctx->pCertInfo->Subject, CERT_SIMPLE_NAME_STR);
}

std::string WinCert::get_issuer_name_simple() const {
    return name_text(ctx->pCertInfo->Issuer, CERT_SIMPLE_NAME_STR);
}

std::string WinCert::name_text(CERT_NAME_BLOB& name, DWORD string_type) const {
    const DWORD size = ::CertNameToStrA(ctx->dwCertEncodingType, &name, string_type, nullptr, 0);
    if (size <= 1) return ""; // only the terminating NUL
    std::string text(size, '\0');
    ::CertNameToStrA(ctx->dwCertEncodingType, &name, string_type, text.data(), size);
    // The size includes the terminating NUL.
    return text.substr(0, text.find('\0'));
}

} // namespace Kes
