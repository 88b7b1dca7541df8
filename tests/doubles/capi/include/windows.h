#ifndef KES_TESTS_DOUBLES_CAPI_INCLUDE_WINDOWS_H_
#define KES_TESTS_DOUBLES_CAPI_INCLUDE_WINDOWS_H_

#include <cstdint>

/// The part of Windows' header that the CryptoAPI sources need. Names, values and layouts are those of 64-bit
/// Windows.

#define WINAPI
#define TRUE 1
#define FALSE 0

#define ERROR_FILE_NOT_FOUND 2L
#define ERROR_INVALID_HANDLE 6L
#define ERROR_MORE_DATA 234L
#define ERROR_NO_MORE_ITEMS 259L
#define NTE_BAD_TYPE static_cast<HRESULT>(0x8009000A)
#define NTE_NO_KEY static_cast<HRESULT>(0x8009000D)
#define NTE_BAD_KEYSET static_cast<HRESULT>(0x80090016)
#define NTE_KEYSET_NOT_DEF static_cast<HRESULT>(0x80090019)
#define CRYPT_E_NOT_FOUND static_cast<HRESULT>(0x80092004)
#define SCARD_E_NO_SUCH_CERTIFICATE static_cast<HRESULT>(0x8010002C)

using BOOL = int;
using BYTE = unsigned char;
using DWORD = std::uint32_t;
using HRESULT = std::int32_t;
using LPSTR = char*;
using LPCSTR = const char*;
using ULONG_PTR = std::uintptr_t;

extern "C" DWORD GetLastError();

#endif // KES_TESTS_DOUBLES_CAPI_INCLUDE_WINDOWS_H_
