#include "pkcs11/libp11_library.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <libp11.h>
#include <string>
#include <vector>

#include "utils/error.h"
#include "utils/load_diagnostics.h"
#include "utils/load_diagnostics_win.h"
#include "utils/platform.h"
#include <delayimp.h>

// Names that the linker defines: the start of this image, and its delay-load imports of libp11.
extern "C" {
extern const IMAGE_DOS_HEADER __ImageBase;                             // NOLINT(bugprone-reserved-identifier)
extern const ImgDelayDescr __DELAY_IMPORT_DESCRIPTOR_libp11_delayed_a; // NOLINT(bugprone-reserved-identifier)
}

namespace Kes {
namespace {

constexpr const char* location = "libp11_library:78 Kes::require_libp11()";

/// In the order of the search. MSYS2's packages use the second name.
constexpr std::array file_names{"libp11.dll", "libp11-3.dll"};

/// Before 0.4.12, libp11 lacks this function, and its structures have a different layout.
constexpr const char* function_since_0_4_12 = "PKCS11_update_slots";
// The linker imports only functions that are referenced.
[[gnu::used]] const auto import_of_function_since_0_4_12 = &::PKCS11_update_slots;

INT_PTR WINAPI return_null() { return 0; }
INT_PTR WINAPI return_failure() { return -1; }

/// The delay-load helper calls this hook when it cannot bind a function of libp11. If the hook returned null,
/// the helper would raise an exception that no C++ handler catches, and the process would end. The hook
/// therefore supplies a function that fails.
FARPROC WINAPI delay_load_failure_hook(unsigned what, DelayLoadInfo* info) {
    // Without libp11, the hook returns any module that lacks its functions: the program. The helper then
    // calls the hook again for the function.
    if (what == dliFailLoadLib) return reinterpret_cast<FARPROC>(::GetModuleHandleA(nullptr));
    if (what != dliFailGetProc) return nullptr;
    const char* name = info->dlp.fImportByName != FALSE ? info->dlp.szProcName : "";
    const bool returns_pointer =
        std::strcmp(name, "PKCS11_CTX_new") == 0 || std::strcmp(name, "PKCS11_find_token") == 0;
    return returns_pointer ? &return_null : &return_failure;
}

/// The folder of this DLL, ending in a backslash. Wide, because the ANSI code page lacks some characters.
std::wstring own_folder() {
    HMODULE self = nullptr;
    std::wstring path(32768, L'\0'); // the longest path in Windows
    ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                             GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                         reinterpret_cast<const wchar_t*>(&own_folder), &self);
    path.resize(::GetModuleFileNameW(self, path.data(), static_cast<DWORD>(path.size())));
    return path.substr(0, path.rfind(L'\\') + 1);
}

[[noreturn]] void throw_not_loaded(const WinErrorCode& code, const std::string& file) {
    throw WinError(code, "error loading '" + file + "'" + loader_error_cause(code.value, true), location);
}

/// @return null if the folder contains no libp11
HMODULE load_from(const std::wstring& folder) {
    for (const std::string name : file_names) {
        const std::wstring file = folder + std::wstring(name.begin(), name.end());
        if (::GetFileAttributesW(file.c_str()) == INVALID_FILE_ATTRIBUTES) continue;
        HMODULE library = ::LoadLibraryExW(file.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
        if (library != nullptr) return library;
        const WinErrorCode code(::GetLastError()); // before another call can change the number
        throw_not_loaded(code, to_ansi_code_page(file));
    }
    return nullptr;
}

/// Loads libp11. The folder of this DLL comes first, because the system does not search it if it differs from
/// the program's folder. The first file that exists is used, even if it cannot be loaded: another libp11 than
/// the expected one would hide the mistake.
HMODULE load() {
    const ScopedNoLoaderDialogs no_dialogs;
    const std::wstring folder = own_folder();
    if (HMODULE library = load_from(folder)) return library;
    WinErrorCode code(ERROR_MOD_NOT_FOUND);
    for (const std::string name : file_names) {
        if (HMODULE library = ::LoadLibraryA(name.c_str())) return library;
        code = WinErrorCode(::GetLastError());
        const std::string file = find_library_path(name);
        if (!file.empty()) throw_not_loaded(code, file);
    }
    throw WinError(code,
                   "libp11.dll and libp11-3.dll not found: looked for them in '" + to_ansi_code_page(folder) +
                       "', the program's folder, the system's folders, the current folder and PATH",
                   location);
}

/// Converts an offset from the start of this image to a pointer.
template <typename T>
T* from_rva(std::uintptr_t rva) {
    return reinterpret_cast<T*>(const_cast<char*>(reinterpret_cast<const char*>(&__ImageBase)) + rva);
}

/// Binds all imported functions to this library at once. The delay-load helper would bind each function when
/// it is first called, to whichever libp11.dll is loaded at that time. The helper's own function for binding
/// all imports needs a table that GNU's linker leaves out.
/// @return null if all functions are bound; otherwise the name of a missing function, and none is bound
const char* bind_functions(HMODULE library) {
    const ImgDelayDescr& imports = __DELAY_IMPORT_DESCRIPTOR_libp11_delayed_a;
    std::vector<FARPROC> functions;
    for (const auto* thunk = from_rva<const IMAGE_THUNK_DATA>(imports.rvaINT); thunk->u1.AddressOfData != 0;
         ++thunk) {
        const char* name = from_rva<const IMAGE_IMPORT_BY_NAME>(thunk->u1.AddressOfData)->Name;
        functions.push_back(::GetProcAddress(library, name));
        if (functions.back() == nullptr) return name;
    }
    std::copy(functions.begin(), functions.end(), from_rva<FARPROC>(imports.rvaIAT));
    return nullptr;
}

HMODULE load_and_bind() {
    HMODULE library = load();
    const char* missing = bind_functions(library);
    if (missing == nullptr) {
        platform::keep_library_loaded();
        return library;
    }
    const WinErrorCode code(ERROR_PROC_NOT_FOUND);
    const std::string path = library_path(library);
    ::FreeLibrary(library); // none of its functions was called; the user can now replace the file
    const bool is_too_old = std::strcmp(missing, function_since_0_4_12) == 0;
    throw WinError(code,
                   "'" + path + "' has no function " + missing +
                       (is_too_old ? ": libp11 0.4.12 or later is needed" : ""),
                   "libp11_library:117 Kes::require_libp11()");
}

} // namespace

// The delay-load helper defines this name.
extern "C" {
PfnDliHook __pfnDliFailureHook2 = &delay_load_failure_hook; // NOLINT(bugprone-reserved-identifier)
}

void require_libp11() {
    // The library is loaded once and never freed. After a failure, the next call tries again.
    [[maybe_unused]] static const HMODULE library = load_and_bind();
}

} // namespace Kes
