#include "utils/load_diagnostics.h"

#include <openssl/err.h>
#include <string>

#include "utils/error.h"
#include "utils/library_kind.h"
#include "utils/load_diagnostics_win.h"

namespace Kes {
namespace {

bool is_bare(const std::string& name) { return name.find_first_of("/\\:") == std::string::npos; }

bool is_directory(const std::string& path) {
    const DWORD attributes = ::GetFileAttributesA(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

/// Describes the error with which the loader has rejected the library.
std::string describe_rejection(const std::string& name, const WinErrorCode& code) {
    const std::string found = find_library_path(name);
    const std::string& file = found.empty() ? name : found;
    std::string cause = loader_error_cause(code.value, !found.empty());
    if (found.empty() && is_bare(name))
        cause = ": looked for it in the program's folder, the system's folders, the current folder and PATH";
    else if (is_directory(file))
        cause = ": it is a directory";
    return "error loading '" + file + "'" + cause + ": " + code.to_string();
}

/// Describes a library that was loaded, but is not of the wanted kind; "" if it is.
std::string describe_library(HMODULE library, const LibraryKind& wanted, const LibraryKind& other) {
    if (::GetProcAddress(library, wanted.function) != nullptr) return "";
    const WinErrorCode code(::GetLastError());
    const std::string file = "'" + library_path(library) + "'";
    return ::GetProcAddress(library, other.function) != nullptr
               ? file + " is " + other.name + ", not " + wanted.name
               : file + " has no function " + wanted.function + ": " + code.to_string();
}

/// Describes why the library cannot be used; "" if it can. OpenSSL and libp11 do not keep the loader's error,
/// so the function loads the library once more.
std::string describe_load_error(const std::string& name, const LibraryKind& wanted,
                                const LibraryKind& other) {
    const ScopedNoLoaderDialogs no_dialogs;
    HMODULE library = ::LoadLibraryA(name.c_str());
    if (library == nullptr) return describe_rejection(name, WinErrorCode(::GetLastError()));
    std::string description = describe_library(library, wanted, other);
    ::FreeLibrary(library);
    return description;
}

/// Appends the description, if there is one, to the thread's OpenSSL error queue.
void append_load_error(const std::string& description) {
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
    // Windows loads ".\name" from every folder in which it searches for DLLs. SearchPath() would look for it in
    // the current folder only.
    const bool is_anywhere = name.starts_with(".\\") || name.starts_with("./");
    const char* file = name.c_str() + (is_anywhere ? 2 : 0);
    std::string path(32768, '\0');
    path.resize(::SearchPathA(nullptr, file, ".dll", static_cast<DWORD>(path.size()), path.data(), nullptr));
    return path;
}

std::string loader_error_cause(unsigned long error, bool file_exists) {
    if (error == ERROR_MOD_NOT_FOUND && file_exists) return ": a DLL that it needs is missing";
    if (error == ERROR_PROC_NOT_FOUND) return ": a DLL that it needs lacks a function";
    if (error == ERROR_BAD_EXE_FORMAT) return ": it, or a DLL that it needs, is no DLL for 64 bits";
    return "";
}

// OpenSSL appends ".dll" to a bare name, even to "pkcs11.dll".
std::string engine_file_name(const std::string& so_path) {
    return is_bare(so_path) ? so_path + ".dll" : so_path;
}

void append_engine_load_error(const char* path) {
    append_load_error(describe_load_error(engine_file_name(path), engine_kind, module_kind));
}

// libp11 passes the name of the module to the system's loader unchanged.
void append_module_load_error(const char* path) {
    append_load_error(describe_load_error(path, module_kind, engine_kind));
}

ScopedNoLoaderDialogs::ScopedNoLoaderDialogs() : saved_mode(::GetThreadErrorMode()) {
    ::SetThreadErrorMode(saved_mode | SEM_FAILCRITICALERRORS, nullptr);
}

ScopedNoLoaderDialogs::~ScopedNoLoaderDialogs() { ::SetThreadErrorMode(saved_mode, nullptr); }

} // namespace Kes
