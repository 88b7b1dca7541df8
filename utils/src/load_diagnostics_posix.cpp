#include "utils/load_diagnostics.h"

#include <dlfcn.h>
#include <link.h>
#include <memory>
#include <openssl/err.h>
#include <string>

#include "utils/library_kind.h"

namespace Kes {
namespace {

struct CloseLibrary {
    void operator()(void* library) const noexcept { ::dlclose(library); }
};

/// Owns one reference to a loaded library.
using LibraryPtr = std::unique_ptr<void, CloseLibrary>;

bool has_function(const LibraryPtr& library, const char* name) {
    return ::dlsym(library.get(), name) != nullptr;
}

/// The message of the thread's last loader call, which has failed. It names the file.
std::string loader_message() {
    const char* message = ::dlerror();
    return message == nullptr ? "" : message;
}

/// The path of the file, in quotes.
std::string quoted_path(const LibraryPtr& library) {
    const link_map* entry = nullptr;
    ::dlinfo(library.get(), RTLD_DI_LINKMAP, &entry);
    return std::string("'") + (entry == nullptr ? "" : entry->l_name) + "'";
}

/// Describes why the PKCS#11 module cannot be loaded; "" if it can. libp11 writes the loader's message to
/// standard error and does not keep it, so the function loads the module once more. The constructors of the
/// module run again; in the failed attempt they ran too, unless the loader rejected the file.
std::string describe_module_error(const char* name) {
    const LibraryPtr library(::dlopen(name, RTLD_LAZY));
    if (!library) return loader_message();
    if (has_function(library, module_kind.function)) return "";
    std::string message = loader_message();
    if (!has_function(library, engine_kind.function)) return message;
    return quoted_path(library) + " is " + engine_kind.name + ", not " + module_kind.name;
}

/// Says that the file of the engine is a PKCS#11 module; "" if it is not. The function loads the file as
/// OpenSSL has done, which reports the loader's message itself.
std::string describe_engine_error(const std::string& name) {
    const LibraryPtr library(::dlopen(name.c_str(), RTLD_NOW));
    if (!library || has_function(library, engine_kind.function) ||
        !has_function(library, module_kind.function))
        return "";
    return quoted_path(library) + " is " + module_kind.name + ", not " + engine_kind.name;
}

/// Appends the description, if there is one, to the thread's OpenSSL error queue.
void append_load_error(const std::string& description) {
    if (description.empty()) return;
    ::ERR_new();
    ::ERR_set_error(ERR_LIB_DSO, ERR_R_SYS_LIB, "%s", description.c_str());
}

} // namespace

// OpenSSL loads "libpkcs11.so" for the bare name "pkcs11".
std::string engine_file_name(const std::string& so_path) {
    return so_path.find('/') != std::string::npos ? so_path : "lib" + so_path + ".so";
}

void append_engine_load_error(const char* path) {
    append_load_error(describe_engine_error(engine_file_name(path)));
}

// libp11 passes the name of the module to the system's loader unchanged.
void append_module_load_error(const char* path) { append_load_error(describe_module_error(path)); }

ScopedNoLoaderDialogs::ScopedNoLoaderDialogs() = default;
ScopedNoLoaderDialogs::~ScopedNoLoaderDialogs() = default;

} // namespace Kes
