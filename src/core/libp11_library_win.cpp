#include "libp11_library.h"

#include <cstring>
#include <string>

#include "error.h"
#include "library_trouble.h"
#include "windows_api.h"
#include <delayimp.h>

namespace Kes {
namespace {

constexpr const char* file_name = "libp11.dll";

/// The first function that the loaded libp11.dll turned out not to have.
std::string& missing_function() {
    static std::string name;
    return name;
}

INT_PTR WINAPI give_null() { return 0; }
INT_PTR WINAPI give_failure() { return -1; }

/// The linker's helper asks here when it cannot bind one of libp11's functions. Without an answer it raises
/// what no C++ handler catches, and the process ends. So the answer is a function that fails.
FARPROC WINAPI answer_failure(unsigned what, DelayLoadInfo* info) {
    if (what == dliFailLoadLib) // no libp11.dll: a module that has none of its functions, ourselves
        return reinterpret_cast<FARPROC>(::GetModuleHandleA(nullptr));
    if (what != dliFailGetProc) return nullptr;
    const char* name = info->dlp.fImportByName ? info->dlp.szProcName : "";
    if (missing_function().empty()) missing_function() = name;
    const bool gives_pointer =
        std::strcmp(name, "PKCS11_CTX_new") == 0 || std::strcmp(name, "PKCS11_find_token") == 0;
    return gives_pointer ? &give_null : &give_failure;
}

/// Our folder, with a backslash behind; in wide characters, because not every path has others.
std::wstring own_folder() {
    HMODULE self = nullptr;
    std::wstring path(32768, L'\0'); // the longest that there is
    ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                         reinterpret_cast<const wchar_t*>(&own_folder), &self);
    path.resize(::GetModuleFileNameW(self, path.data(), static_cast<DWORD>(path.size())));
    return path.substr(0, path.rfind(L'\\') + 1);
}

std::string narrow(const std::wstring& text) {
    std::string narrowed(text.size() * 4, '\0');
    const int length =
        ::WideCharToMultiByte(CP_ACP, 0, text.data(), static_cast<int>(text.size()), narrowed.data(),
                              static_cast<int>(narrowed.size()), nullptr, nullptr);
    narrowed.resize(static_cast<std::size_t>(length));
    return narrowed;
}

/// The file that the search would take; "" when there is none.
std::string find_file() {
    std::string path(32768, '\0');
    path.resize(
        ::SearchPathA(nullptr, file_name, nullptr, static_cast<DWORD>(path.size()), path.data(), nullptr));
    return path;
}

[[noreturn]] void throw_not_loaded(unsigned long error, const std::string& file, const std::string& folder) {
    const WinErrorCode code(error);
    constexpr const char* location = "libp11_library:78 Kes::require_libp11()";
    if (file.empty())
        throw WinError(code,
                       std::string(file_name) + " not found: looked for it in '" + folder +
                           "', the program's folder, the system's folders, the current folder and PATH",
                       location);
    throw WinError(code,
                   "error loading '" + file + "'" +
                       (error == ERROR_MOD_NOT_FOUND ? ": a DLL that it needs is missing" : ""),
                   location);
}

/// Beside us first: a client may have loaded us from a folder that is not its own.
HMODULE load() {
    const LoaderDialogsOff no_dialogs;
    const std::wstring folder = own_folder();
    const std::wstring beside_us = folder + L"libp11.dll";
    if (::GetFileAttributesW(beside_us.c_str()) != INVALID_FILE_ATTRIBUTES) {
        HMODULE library = ::LoadLibraryExW(beside_us.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
        if (library == nullptr) throw_not_loaded(::GetLastError(), narrow(beside_us), narrow(folder));
        return library;
    }
    HMODULE library = ::LoadLibraryA(file_name);
    if (library == nullptr) throw_not_loaded(::GetLastError(), find_file(), narrow(folder));
    return library;
}

std::string path_of(HMODULE library) {
    std::wstring path(32768, L'\0');
    path.resize(::GetModuleFileNameW(library, path.data(), static_cast<DWORD>(path.size())));
    return narrow(path);
}

} // namespace

// The name is the linker's.
extern "C" {
PfnDliHook __pfnDliFailureHook2 = &answer_failure; // NOLINT(bugprone-reserved-identifier)
}

void require_libp11() {
    static const HMODULE library =
        load(); // once: it is never let go. A failure is no result, and tried again
    ::__HrLoadAllImportsForDll(file_name); // all functions now, so that none can be found missing later
    if (!missing_function().empty())
        throw WinError(WinErrorCode(ERROR_PROC_NOT_FOUND),
                       "'" + path_of(library) + "' has no function " + missing_function(),
                       "libp11_library:117 Kes::require_libp11()");
}

} // namespace Kes
