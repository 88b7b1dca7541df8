#include "library_trouble.h"

#include <openssl/err.h>
#include <string>

#include "error.h"
#include "windows_api.h"

namespace Kes {
namespace {

/// What is wrong with the library; "" when it can be loaded and has the function.
std::string find_trouble(const std::string& file, const char* function) {
    const LoaderDialogsOff no_dialogs;
    HMODULE library = ::LoadLibraryA(file.c_str());
    if (library == nullptr) {
        const WinErrorCode code(::GetLastError());
        return "error loading '" + file + "': " + code.to_string();
    }
    std::string trouble;
    if (::GetProcAddress(library, function) == nullptr) {
        const WinErrorCode code(::GetLastError());
        trouble = "'" + file + "' has no function " + function + ": " + code.to_string();
    }
    ::FreeLibrary(library);
    return trouble;
}

void explain(const std::string& file, const char* function) {
    const std::string trouble = find_trouble(file, function);
    if (trouble.empty()) return;
    ::ERR_new();
    ::ERR_set_error(ERR_LIB_DSO, ERR_R_SYS_LIB, "%s", trouble.c_str());
}

} // namespace

void explain_engine_failure(const char* path) {
    // OpenSSL makes "pkcs11.dll" to "pkcs11.dll.dll", but takes what looks like a path as it is.
    const std::string name = path;
    const bool is_path = name.find_first_of("/\\:") != std::string::npos;
    explain(is_path ? name : name + ".dll", "bind_engine");
}

void explain_module_failure(const char* path) { explain(path, "C_GetFunctionList"); }

LoaderDialogsOff::LoaderDialogsOff() { ::SetThreadErrorMode(SEM_FAILCRITICALERRORS, &before_); }

LoaderDialogsOff::~LoaderDialogsOff() { ::SetThreadErrorMode(before_, nullptr); }

} // namespace Kes
