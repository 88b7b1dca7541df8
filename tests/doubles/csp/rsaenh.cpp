#include "rsaenh.h"

namespace Kes::test_card {

void* rsaenh_function(const char* name) {
    static const HMODULE library = ::LoadLibraryA("rsaenh.dll"); // never unloaded
    return library == nullptr ? nullptr : reinterpret_cast<void*>(::GetProcAddress(library, name));
}

BOOL open_rsaenh(HCRYPTPROV* provider, const ProviderTable& table) {
    char name[] = "Microsoft Enhanced RSA and AES Cryptographic Provider";
    ProviderTable own = table;
    own.provider_name = name; // the name determines the algorithms; this one includes SHA-2
    return rsaenh("CPAcquireContext", provider, static_cast<LPSTR>(nullptr), DWORD{CRYPT_VERIFYCONTEXT},
                  &own);
}

} // namespace Kes::test_card
