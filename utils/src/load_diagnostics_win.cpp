#include "utils/load_diagnostics.h"

#include <openssl/err.h>
#include <string>

#include "utils/error.h"
#include "utils/load_diagnostics_win.h"

namespace Kes {
namespace {

/// Describes why the library cannot be loaded, or that it lacks the function; "" if neither is the case.
/// OpenSSL and libp11 do not keep the loader's error, so the function loads the library once more.
std::string describe_load_error(const std::string& name, const char* function) {
    const ScopedNoLoaderDialogs no_dialogs;
    HMODULE library = ::LoadLibraryA(name.c_str());
    if (library == nullptr) {
        const WinErrorCode code(::GetLastError());
        const std::string file = find_library_path(name);
        return "error loading '" + (file.empty() ? name : file) + "'" +
               loader_error_cause(code.value, !file.empty()) + ": " + code.to_string();
    }
    std::string description;
    if (::GetProcAddress(library, function) == nullptr) {
        const WinErrorCode code(::GetLastError());
        description = "'" + library_path(library) + "' has no function " + function + ": " + code.to_string();
    }
    ::FreeLibrary(library);
    return description;
}

/// Appends the description, if there is one, to the thread's OpenSSL error queue.
void append_load_error(const std::string& name, const char* function) {
    const std::string description = describe_load_error(name, function);
    if (description.empty()) return;
    ::ERR_new();
    ::ERR_set_error(ERR_LIB_DSO, ERR_R_SYS_LIB, "%s", description.c_str());
}

} // namespace

std::string to_ansi_code_page(const std::wstring& text) {
    // No code page needs more than four bytes for a UTF-16 unit.
    std::string converted(text.size() * 4, '\0');
    const int length =
        ::WideCharToMultiByte(CP_ACP, 0, text.data(), static_cast<int>(text.size()), converted.data(),
                              static_cast<int>(converted.size()), nullptr, nullptr);
    converted.resize(static_cast<std::size_t>(length));
    return converted;
}

std::string library_path(HMODULE library) {
    std::wstring path(32768, L'\0'); // the longest path that Windows supports
    path.resize(::GetModuleFileNameW(library, path.data(), static_cast<DWORD>(path.size())));
    return to_ansi_code_page(path);
}

std::string find_library_path(const std::string& name) {
    std::string path(32768, '\0');
    path.resize(
        ::SearchPathA(nullptr, name.c_str(), ".dll", static_cast<DWORD>(path.size()), path.data(), nullptr));
    return path;
}

std::string loader_error_cause(unsigned long error, bool file_exists) {
    if (error == ERROR_MOD_NOT_FOUND && file_exists) return ": a DLL that it needs is missing";
    if (error == ERROR_PROC_NOT_FOUND) return ": a DLL that it needs lacks a function";
    if (error == ERROR_BAD_EXE_FORMAT) return ": it, or a DLL that it needs, is no DLL for 64 bits";
    return "";
}

void append_engine_load_error(const char* path) {
    // OpenSSL appends ".dll" to a bare name, even to "pkcs11.dll", but does not change a path.
    const std::string name = path;
    const bool is_path = name.find_first_of("/\\:") != std::string::npos;
    append_load_error(is_path ? name : name + ".dll", "bind_engine");
}

// libp11 passes the name of the module to the system's loader unchanged.
void append_module_load_error(const char* path) { append_load_error(path, "C_GetFunctionList"); }

ScopedNoLoaderDialogs::ScopedNoLoaderDialogs() : saved_mode(::GetThreadErrorMode()) {
    ::SetThreadErrorMode(saved_mode | SEM_FAILCRITICALERRORS, nullptr);
}

ScopedNoLoaderDialogs::~ScopedNoLoaderDialogs() { ::SetThreadErrorMode(saved_mode, nullptr); }

} // namespace Kes
