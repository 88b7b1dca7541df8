#ifndef KES_UTILS_LIBRARY_KIND_H_
#define KES_UTILS_LIBRARY_KIND_H_

#include <string>

namespace Kes {

/// A kind of library that is loaded by its path.
struct LibraryKind {
    const char* function; ///< every such library exports it
    const char* name;     ///< as messages call it
};

constexpr LibraryKind engine_kind{"bind_engine", "an OpenSSL engine"};
constexpr LibraryKind module_kind{"C_GetFunctionList", "a PKCS#11 module"};

/// The name or path that OpenSSL passes to the system's loader for a value of its command "SO_PATH": it
/// changes a name without a folder, but no path. libp11 passes the name of a module unchanged.
std::string engine_file_name(const std::string& so_path);

} // namespace Kes

#endif // KES_UTILS_LIBRARY_KIND_H_
