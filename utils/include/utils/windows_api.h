#ifndef KES_UTILS_WINDOWS_API_H_
#define KES_UTILS_WINDOWS_API_H_

/// The one place that takes in the headers of Windows, for the sources named *_win.cpp and the CryptoAPI
/// sources. Windows and OpenSSL give some names to different things; OpenSSL's meaning is the one that we
/// use.
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <wincrypt.h> // after the other, which it needs

#undef OCSP_REQUEST
#undef OCSP_RESPONSE
#undef PKCS7_ISSUER_AND_SERIAL
#undef PKCS7_SIGNER_INFO
#undef X509_CERT_PAIR
#undef X509_EXTENSIONS
#undef X509_NAME

#endif // KES_UTILS_WINDOWS_API_H_
