#ifndef KES_TESTS_DOUBLES_CSP_RSAENH_H_
#define KES_TESTS_DOUBLES_CSP_RSAENH_H_

#include "utils/windows_api.h"

namespace Kes::test_card {

/// What the system hands to a provider. Not every <wincrypt.h> declares it.
struct ProviderTable {
    DWORD version;
    FARPROC verify_image;
    FARPROC return_window;
    DWORD provider_type;
    BYTE* context_info;
    DWORD context_info_size;
    LPSTR provider_name;
};

/// A function of the system's own software provider; null when it does not have it.
void* rsaenh_function(const char* name);

/// Calls such a function. The arguments must have exactly the types that the function has.
template <typename... Arguments>
BOOL rsaenh(const char* name, Arguments... arguments) {
    using Function = BOOL(WINAPI*)(Arguments...);
    const auto function = reinterpret_cast<Function>(rsaenh_function(name));
    if (function != nullptr) return function(arguments...);
    ::SetLastError(ERROR_PROC_NOT_FOUND);
    return FALSE;
}

/// Opens a context that keeps nothing. @param table  what the system handed to us
BOOL open_rsaenh(HCRYPTPROV* provider, const ProviderTable& table);

} // namespace Kes::test_card

#endif // KES_TESTS_DOUBLES_CSP_RSAENH_H_
