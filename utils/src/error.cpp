#include "utils/error.h"

#include <algorithm>
#include <array>
#include <memory>
#include <openssl/bio.h>
#include <openssl/err.h>

#include "utils/ossl_ptr.h"
#include "utils/platform.h"
#include "utils/text_helper.h"

namespace Kes {
namespace {

// Windows language identifiers. English comes first, so that users in all countries can search for the texts.
constexpr unsigned long language_english_us = 1033;
constexpr unsigned long language_system_default = 0;

std::string error_code_name(ErrorCodeType code) {
    // Indexed by the value of ErrorCodeType.
    static constexpr std::array names{
        "no_error",          "unspecified",   "null_pointer", "bad_argument", "unsupported",
        "internal_error",    "invalid_state", "timeout",      "not_found",    "not_registered",
        "not_initialized",   "empty",         "open_failed",  "load_failed",  "resolve_host_failed",
        "connection_failed", "user_abort",    "os_err",       "lib_err"};
    const auto index = static_cast<std::uint32_t>(code);
    return index < names.size() ? names[index] : "unknown";
}

std::string windows_error_text(unsigned long code, const SystemMessageLookup& lookup) {
    auto text = lookup(code, language_english_us);
    if (!text) text = lookup(code, language_system_default);
    if (!text) return "unknown winerror";
    // Remove line ends everywhere, not only at the end, so that the text is one line of the log.
    std::erase(*text, '\r');
    std::erase(*text, '\n');
    return *text;
}

/// Returns the lines of the thread's OpenSSL error queue and empties the queue.
std::string drain_openssl_errors() {
    const BioPtr memory(::BIO_new(::BIO_s_mem()));
    if (!memory) {
        // Out of memory. Empty the queue even so, or its lines would appear in the text of the next error.
        ::ERR_clear_error();
        return "";
    }
    ::ERR_print_errors(memory.get());
    char* data = nullptr;
    const long length = BIO_get_mem_data(memory.get(), &data);
    if (data == nullptr || length <= 0) return "";
    std::string text(data, static_cast<std::size_t>(length));
    TextHelper::trim_trailing_newlines(text);
    return text;
}

} // namespace

ErrorCode::ErrorCode(ErrorCodeType code) : ErrorCodeTempl(code, error_code_name(code)) {}

std::string ErrorCode::to_string() const {
    return "val=" + std::to_string(static_cast<std::uint32_t>(value)) + " (" + text + ")";
}

WinErrorCode::WinErrorCode(unsigned long code) : WinErrorCode(code, platform::system_message) {}

WinErrorCode::WinErrorCode(unsigned long code, const SystemMessageLookup& lookup)
    : ErrorCodeTempl(code, windows_error_text(code, lookup)) {}

std::string WinErrorCode::to_string() const {
    return "val=" + std::to_string(value) + " [0x" + TextHelper::to_hex(value).data() + "] (" + text + ")";
}

OsslErrorCode::OsslErrorCode(int code) : ErrorCodeTempl(code, drain_openssl_errors()) {}

std::string OsslErrorCode::to_string() const {
    return "rc=" + std::to_string(value) + (text.empty() ? "" : "\n" + text);
}

ErrorBase::ErrorBase(const char* location, const std::string& message, const std::string& code_text)
    : whole_text(location == nullptr ? "" : location) {
    for (const std::string* part : {&message, &code_text}) {
        if (!whole_text.empty() && !part->empty()) whole_text += ": ";
        whole_text += *part;
    }
}

} // namespace Kes
