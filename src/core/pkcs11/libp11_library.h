#ifndef KES_PKCS11_LIBP11_LIBRARY_H_
#define KES_PKCS11_LIBP11_LIBRARY_H_

namespace Kes {

/// Makes sure that libp11 is loaded, and that libp11 and this library stay loaded until the process ends:
/// OpenSSL keeps pointers to libp11's error texts and to functions of this library. Call this before any
/// function of libp11.
///
/// The version must be 0.4.12 or later, because earlier versions have structures of another layout. On
/// Windows, the first call loads libp11, so that only programs that use it need the DLL. On other systems the
/// loader has already loaded it. The function belongs to the target libp11: a target that replaces libp11
/// with a test double must define it as well.
/// @throws WinError on Windows, if libp11 does not exist, cannot be loaded, lacks a function, or is too old;
///         the next call tries again
/// @throws Error on other systems, if libp11 is too old
void require_libp11();

} // namespace Kes

#endif // KES_PKCS11_LIBP11_LIBRARY_H_
