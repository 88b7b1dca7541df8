#ifndef KES_MARVO_ONE_LIBCRYPTO_HPP_
#define KES_MARVO_ONE_LIBCRYPTO_HPP_

/// @file
/// The check of marvo.hpp that client and library use one libcrypto.

#include <memory>
#include <string>

#include <openssl/crypto.h>

// A header cannot be one file for each system, as the library's sources are. Only this one differs.
#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN // without wincrypt.h, whose macros are names of OpenSSL
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#else
#include <dlfcn.h>
#include <link.h>
#endif

/// Details of the wrapper; not for clients.
namespace marvo::detail {

/// A loaded program file: the program itself, a shared library or a DLL.
struct Module {
    const void* base = nullptr; ///< null if there is none
    std::string file;
};

#ifdef _WIN32

inline Module describe_module(HMODULE handle) {
    char file[MAX_PATH] = "";
    if (handle != nullptr) GetModuleFileNameA(handle, file, MAX_PATH);
    return {handle, file};
}

inline Module module_at(const void* address) {
    constexpr DWORD flags =
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
    HMODULE handle = nullptr;
    GetModuleHandleExA(flags, static_cast<const char*>(address), &handle);
    return describe_module(handle);
}

/// libmarvo-4.dll imports this DLL by its name alone. For such an import, Windows uses the loaded DLL of that
/// name, whatever its folder is.
inline Module libcrypto_of_library(const void*) {
    return describe_module(GetModuleHandleA("libcrypto-3-x64.dll"));
}

#else

inline Module module_at(const void* address) {
    Dl_info info{};
    if (dladdr(address, &info) == 0) return {};
    return {info.dli_fbase, info.dli_fname};
}

/// Searches only the libraries that the library is linked to. A search in the whole process would find the
/// program's own copy first, which replaces some functions of the other one, but not all.
inline Module libcrypto_of_library(const void* address_in_library) {
    struct Close {
        void operator()(void* handle) const { dlclose(handle); }
    };
    Dl_info info{};
    void* entry = nullptr; // in the list of loaded files, where the program itself has an empty name
    if (dladdr1(address_in_library, &info, &entry, RTLD_DL_LINKMAP) == 0) return {};
    const char* name = static_cast<link_map*>(entry)->l_name;
    const std::unique_ptr<void, Close> handle(dlopen(name, RTLD_LAZY | RTLD_NOLOAD));
    const void* function = handle ? dlsym(handle.get(), "OpenSSL_version_num") : nullptr;
    return function == nullptr ? Module{} : module_at(function);
}

#endif

/// Compares the libcrypto that contains a text or function of the program with that of the library.
/// @return what is wrong; empty if they are the same
inline std::string libcrypto_problem(const void* in_programs_libcrypto, const void* in_library) {
    const Module ours = module_at(in_programs_libcrypto);
    const Module theirs = libcrypto_of_library(in_library);
    if (theirs.base == nullptr) return "the libcrypto of libmarvo was not found";
    if (ours.base == theirs.base) return "";
    return "the program uses the libcrypto in " + ours.file + ", but libmarvo uses " + theirs.file +
           ": link libcrypto dynamically";
}

/// The same for the libcrypto that the calling code is linked to. Its version text is inside of it. The
/// address of a function may be that of a jump in the program.
inline std::string libcrypto_problem(const void* in_library) {
    return libcrypto_problem(OpenSSL_version(OPENSSL_VERSION), in_library);
}

} // namespace marvo::detail

#endif // KES_MARVO_ONE_LIBCRYPTO_HPP_
