#include "utils/load_diagnostics.h"

#include <openssl/err.h>
#include <string>

#include "utils/error.h"
#include "utils/load_diagnostics_win.h"

namespace Kes {
namespace {

/// What is wrong with the library; "" when it can be loaded and has the function.
std::string find_trouble(const std::string& name, const char* function) {
    const ScopedNoLoaderDialogs no_dialogs;
    HMODULE library = ::LoadLibraryA(name.c_str());
    if (library == nullptr) {
        const WinErrorCode code(::GetLastError());
        const std::string file = find_library(name);
        return "error loading '" + (file.empty() ? name : file) + "'" +
               loader_hint(code.value, !file.empty()) + ": " + code.to_string();
    }
    std::string trouble;
    if (::GetProcAddress(library, function) == nullptr) {
        const WinErrorCode code(::GetLastError());
        trouble = "'" + library_path(library) + "' has no function " + function + ": " + code.to_string();
    }
    ::FreeLibrary(library);
    return trouble;
}

void explain(const std::string& name, const char* function) {
    const std::string trouble = find_trouble(name, function);
    if (trouble.empty()) return;
    ::ERR_new();
    ::ERR_set_error(ERR_LIB_DSO, ERR_R_SYS_LIB, "%s", trouble.c_str());
}

} // namespace

std::string narrow(const std::wstring& text) {
    std::string narrowed(text.size() * 4, '\0');
    const int length =
        ::WideCharToMultiByte(CP_ACP, 0, text.data(), static_cast<int>(text.size()), narrowed.data(),
                              static_cast<int>(narrowed.size()), nullptr, nullptr);
    narrowed.resize(static_cast<std::size_t>(length));
    return narrowed;
}

std::string library_path(HMODULE library) {
    std::wstring path(32768, L'\0'); // the longest that there is
    path.resize(::GetModuleFileNameW(library, path.data(), static_cast<DWORD>(path.size())));
    return narrow(path);
}

std::string find_library(const std::string& name) {
    std::string path(32768, '\0');
    path.resize(
        ::SearchPathA(nullptr, name.c_str(), ".dll", static_cast<DWORD>(path.size()), path.data(), nullptr));
    return path;
}

std::string loader_hint(unsigned long error, bool is_there) {
    if (error == ERROR_MOD_NOT_FOUND && is_there) return ": a DLL that it needs is missing";
    if (error == ERROR_PROC_NOT_FOUND) return ": a DLL that it needs lacks a function";
    if (error == ERROR_BAD_EXE_FORMAT) return ": it, or a DLL that it needs, is no DLL for 64 bits";
    return "";
}

void explain_engine_failure(const char* path) {
    // OpenSSL makes "pkcs11.dll" to "pkcs11.dll.dll", but takes what looks like a path as it is.
    const std::string name = path;
    const bool is_path = name.find_first_of("/\\:") != std::string::npos;
    explain(is_path ? name : name + ".dll", "bind_engine");
}

void explain_module_failure(const char* path) { explain(path, "C_GetFunctionList"); }

ScopedNoLoaderDialogs::ScopedNoLoaderDialogs() : before_(::GetThreadErrorMode()) {
    ::SetThreadErrorMode(before_ | SEM_FAILCRITICALERRORS, nullptr);
}

ScopedNoLoaderDialogs::~ScopedNoLoaderDialogs() { ::SetThreadErrorMode(before_, nullptr); }

} // namespace Kes
