#ifndef KES_TESTS_DOUBLES_CSP_RSAENH_H_
#define KES_TESTS_DOUBLES_CSP_RSAENH_H_

#include "utils/windows_api.h"

namespace Kes::test_card {

/// The table that the system passes to a provider. Not every <wincrypt.h> declares it.
struct ProviderTable {
    DWORD version;
    FARPROC verify_image;
    FARPROC return_window;
    DWORD provider_type;
    BYTE* context_info;
    DWORD context_info_size;
    LPSTR provider_name;
};

/// A function of the system's software provider; null if it does not exist.
void* rsaenh_function(const char* name);

/// Calls such a function. The arguments must have exactly the types of its parameters.
template <typename... Arguments>
BOOL rsaenh(const char* name, Arguments... arguments) {
    using Function = BOOL(WINAPI*)(Arguments...);
    const auto function = reinterpret_cast<Function>(rsaenh_function(name));
    if (function != nullptr) return function(arguments...);
    ::SetLastError(ERROR_PROC_NOT_FOUND);
    return FALSE;
}

/// Opens a context that stores nothing. @param table  the table that the system passed to the test provider
BOOL open_rsaenh(HCRYPTPROV* provider, const ProviderTable& table);

} // namespace Kes::test_card

#endif // KES_TESTS_DOUBLES_CSP_RSAENH_H_
