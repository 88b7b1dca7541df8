#ifndef KES_PKCS11_LIBP11_LIBRARY_H_
#define KES_PKCS11_LIBP11_LIBRARY_H_

namespace Kes {

/// Makes sure that libp11 is there, and that it stays loaded and we with it: OpenSSL keeps pointers to the
/// error texts of the one and to functions of the other. Call before anything of libp11 is called.
///
/// On Windows, libp11 is looked for now, so that those who do not use it need not have it. Elsewhere the
/// system's loader has seen to it. Belongs to libp11: whatever stands in for that brings this along.
/// @throws WinError when there is no libp11.dll, when it cannot be loaded, and when it lacks a function
void require_libp11();

} // namespace Kes

#endif // KES_PKCS11_LIBP11_LIBRARY_H_
