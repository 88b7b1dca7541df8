#ifndef KES_UTILS_WINDOWS_API_H_
#define KES_UTILS_WINDOWS_API_H_

/// Includes windows.h and wincrypt.h, for the sources named *_win.cpp and the CryptoAPI sources. No other
/// file of the library includes the two directly: wincrypt.h defines macros with names of OpenSSL types, and
/// this header removes those macros.
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <wincrypt.h> // after windows.h, which it depends on

#undef OCSP_REQUEST
#undef OCSP_RESPONSE
#undef PKCS7_ISSUER_AND_SERIAL
#undef PKCS7_SIGNER_INFO
#undef X509_CERT_PAIR
#undef X509_EXTENSIONS
#undef X509_NAME

#endif // KES_UTILS_WINDOWS_API_H_
