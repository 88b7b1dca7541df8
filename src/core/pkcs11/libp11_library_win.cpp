#include "pkcs11/libp11_library.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "utils/error.h"
#include "utils/load_diagnostics.h"
#include "utils/load_diagnostics_win.h"
#include <delayimp.h>

// The linker's names: where we begin, and what the import library says that we call of libp11.
extern "C" {
extern const IMAGE_DOS_HEADER __ImageBase;                             // NOLINT(bugprone-reserved-identifier)
extern const ImgDelayDescr __DELAY_IMPORT_DESCRIPTOR_libp11_delayed_a; // NOLINT(bugprone-reserved-identifier)
}

namespace Kes {
namespace {

constexpr const char* file_name = "libp11.dll";

INT_PTR WINAPI give_null() { return 0; }
INT_PTR WINAPI give_failure() { return -1; }

/// The linker's helper asks here when it cannot bind one of libp11's functions. Without an answer it raises
/// what no C++ handler catches, and the process ends. So the answer is a function that fails.
FARPROC WINAPI answer_failure(unsigned what, DelayLoadInfo* info) {
    if (what == dliFailLoadLib) // no libp11.dll: a module that has none of its functions, the program
        return reinterpret_cast<FARPROC>(::GetModuleHandleA(nullptr));
    if (what != dliFailGetProc) return nullptr;
    const char* name = info->dlp.fImportByName != FALSE ? info->dlp.szProcName : "";
    const bool gives_pointer =
        std::strcmp(name, "PKCS11_CTX_new") == 0 || std::strcmp(name, "PKCS11_find_token") == 0;
    return gives_pointer ? &give_null : &give_failure;
}

/// Our folder, with a backslash behind; in wide characters, because not every path has others.
std::wstring own_folder() {
    HMODULE self = nullptr;
    std::wstring path(32768, L'\0'); // the longest that there is
    ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                             GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                         reinterpret_cast<const wchar_t*>(&own_folder), &self);
    path.resize(::GetModuleFileNameW(self, path.data(), static_cast<DWORD>(path.size())));
    return path.substr(0, path.rfind(L'\\') + 1);
}

[[noreturn]] void throw_not_loaded(const WinErrorCode& code, const std::string& file,
                                   const std::wstring& folder) {
    constexpr const char* location = "libp11_library:78 Kes::require_libp11()";
    if (file.empty())
        throw WinError(code,
                       std::string(file_name) + " not found: looked for it in '" + to_ansi_code_page(folder) +
                           "', the program's folder, the system's folders, the current folder and PATH",
                       location);
    throw WinError(code, "error loading '" + file + "'" + loader_error_cause(code.value, true), location);
}

/// Beside us first: a client may have loaded us from a folder that is not its own.
HMODULE load() {
    const ScopedNoLoaderDialogs no_dialogs;
    const std::wstring folder = own_folder();
    const std::wstring beside_us = folder + L"libp11.dll";
    if (::GetFileAttributesW(beside_us.c_str()) != INVALID_FILE_ATTRIBUTES) {
        HMODULE library = ::LoadLibraryExW(beside_us.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
        if (library != nullptr) return library;
        const WinErrorCode code(::GetLastError()); // before anything else that could change it
        throw_not_loaded(code, to_ansi_code_page(beside_us), folder);
    }
    HMODULE library = ::LoadLibraryA(file_name);
    if (library != nullptr) return library;
    const WinErrorCode code(::GetLastError());
    throw_not_loaded(code, find_library_path(file_name), folder);
}

/// What stands at an offset from our beginning.
template <typename T>
T* at(std::uintptr_t offset) {
    return reinterpret_cast<T*>(const_cast<char*>(reinterpret_cast<const char*>(&__ImageBase)) + offset);
}

/// Binds all functions to this one library, now. The linker's helper would look for each when it is first
/// called, in whatever libp11.dll is loaded by then. It cannot bind them all at once either: GNU's linker
/// leaves out the table that it would need.
/// @return the name of a function that the library does not have, and then none is bound; null: all are
const char* bind_functions(HMODULE library) {
    const ImgDelayDescr& imports = __DELAY_IMPORT_DESCRIPTOR_libp11_delayed_a;
    std::vector<FARPROC> functions;
    for (const auto* thunk = at<const IMAGE_THUNK_DATA>(imports.rvaINT); thunk->u1.AddressOfData != 0;
         ++thunk) {
        const char* name = at<const IMAGE_IMPORT_BY_NAME>(thunk->u1.AddressOfData)->Name;
        functions.push_back(::GetProcAddress(library, name));
        if (functions.back() == nullptr) return name;
    }
    std::copy(functions.begin(), functions.end(), at<FARPROC>(imports.rvaIAT));
    return nullptr;
}

/// We, as libp11: OpenSSL has pointers into both.
void stay_loaded() {
    HMODULE self = nullptr;
    ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                         reinterpret_cast<const wchar_t*>(&stay_loaded), &self);
}

HMODULE load_whole() {
    HMODULE library = load();
    const char* missing = bind_functions(library);
    if (missing == nullptr) {
        stay_loaded();
        return library;
    }
    const WinErrorCode code(ERROR_PROC_NOT_FOUND);
    const std::string path = library_path(library);
    ::FreeLibrary(library); // nothing of it was called; so the right one can take its place
    throw WinError(code, "'" + path + "' has no function " + missing,
                   "libp11_library:117 Kes::require_libp11()");
}

} // namespace

// The name is the linker's.
extern "C" {
PfnDliHook __pfnDliFailureHook2 = &answer_failure; // NOLINT(bugprone-reserved-identifier)
}

void require_libp11() {
    // Once: the library is never let go. A failure is no result, and tried again.
    [[maybe_unused]] static const HMODULE library = load_whole();
}

} // namespace Kes
