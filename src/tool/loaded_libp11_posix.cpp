// libp11 for the program marvo, in place of the target libp11. The program loads libp11 when it first needs it,
// because doctor must run, and name the mistake, on systems where libp11 is missing.
#include "pkcs11/libp11_library.h"

#include <array>
#include <cstring>
#include <dlfcn.h>
#include <libp11.h>
#include <link.h>
#include <memory>
#include <string>
#include <type_traits>

#include "utils/error.h"

namespace Kes {
namespace {

constexpr const char* library_name = "libp11.so.3";

/// Before 0.4.12, libp11 lacks this function, and its structures have a different layout.
constexpr const char* function_since_0_4_12 = "PKCS11_update_slots";

constexpr std::array functions{"ERR_load_PKCS11_strings",  "PKCS11_CTX_free",
                               "PKCS11_CTX_load",          "PKCS11_CTX_new",
                               "PKCS11_CTX_unload",        "PKCS11_enumerate_certs",
                               "PKCS11_enumerate_keys",    "PKCS11_enumerate_public_keys",
                               "PKCS11_enumerate_slots",   "PKCS11_find_token",
                               "PKCS11_is_logged_in",      "PKCS11_login",
                               "PKCS11_release_all_slots", function_since_0_4_12};

struct CloseLibrary {
    void operator()(void* library) const noexcept { ::dlclose(library); }
};
using Library = std::unique_ptr<void, CloseLibrary>;

std::string path_of(const Library& library) {
    const link_map* entry = nullptr;
    return ::dlinfo(library.get(), RTLD_DI_LINKMAP, &entry) == 0 ? entry->l_name : library_name;
}

void check_functions(const Library& library) {
    for (const char* name : functions) {
        if (::dlsym(library.get(), name) != nullptr) continue;
        const bool is_too_old = std::strcmp(name, function_since_0_4_12) == 0;
        throw Error(ErrorCodeType::unsupported,
                    "'" + path_of(library) + "' has no function " + name +
                        (is_too_old ? ": libp11 0.4.12 or later is needed" : ""),
                    "libp11_library:20 Kes::require_libp11()");
    }
}

Library load() {
    Library library(::dlopen(library_name, RTLD_NOW));
    if (!library)
        throw Error(ErrorCodeType::load_failed,
                    std::string("error loading '") + library_name + "': " + ::dlerror(),
                    "libp11_library:78 Kes::require_libp11()");
    check_functions(library);
    return library;
}

/// The loaded libp11. It is loaded once and never closed. After a failure, the next call tries again.
void* libp11() {
    static void* const library = load().release();
    return library;
}

/// Calls the function of this name in libp11. @param declared  gives the type of the function
template <typename Result, typename... Parameters>
Result call(const char* name, Result (*declared)(Parameters...),
            std::type_identity_t<Parameters>... arguments) {
    return reinterpret_cast<decltype(declared)>(::dlsym(libp11(), name))(arguments...);
}

} // namespace

void require_libp11() { libp11(); }

} // namespace Kes

using Kes::call;

extern "C" {

void ERR_load_PKCS11_strings() { call(__func__, &::ERR_load_PKCS11_strings); }

PKCS11_CTX* PKCS11_CTX_new() { return call(__func__, &::PKCS11_CTX_new); }

int PKCS11_CTX_load(PKCS11_CTX* ctx, const char* ident) {
    return call(__func__, &::PKCS11_CTX_load, ctx, ident);
}

void PKCS11_CTX_unload(PKCS11_CTX* ctx) { call(__func__, &::PKCS11_CTX_unload, ctx); }

void PKCS11_CTX_free(PKCS11_CTX* ctx) { call(__func__, &::PKCS11_CTX_free, ctx); }

int PKCS11_enumerate_slots(PKCS11_CTX* ctx, PKCS11_SLOT** slotsp, unsigned int* nslotsp) {
    return call(__func__, &::PKCS11_enumerate_slots, ctx, slotsp, nslotsp);
}

void PKCS11_release_all_slots(PKCS11_CTX* ctx, PKCS11_SLOT* slots, unsigned int nslots) {
    call(__func__, &::PKCS11_release_all_slots, ctx, slots, nslots);
}

PKCS11_SLOT* PKCS11_find_token(PKCS11_CTX* ctx, PKCS11_SLOT* slots, unsigned int nslots) {
    return call(__func__, &::PKCS11_find_token, ctx, slots, nslots);
}

int PKCS11_is_logged_in(PKCS11_SLOT* slot, int so, int* res) {
    return call(__func__, &::PKCS11_is_logged_in, slot, so, res);
}

int PKCS11_login(PKCS11_SLOT* slot, int so, const char* pin) {
    return call(__func__, &::PKCS11_login, slot, so, pin);
}

int PKCS11_enumerate_keys(PKCS11_TOKEN* token, PKCS11_KEY** keys, unsigned int* nkeys) {
    return call(__func__, &::PKCS11_enumerate_keys, token, keys, nkeys);
}

int PKCS11_enumerate_public_keys(PKCS11_TOKEN* token, PKCS11_KEY** keys, unsigned int* nkeys) {
    return call(__func__, &::PKCS11_enumerate_public_keys, token, keys, nkeys);
}

int PKCS11_enumerate_certs(PKCS11_TOKEN* token, PKCS11_CERT** certs, unsigned int* ncerts) {
    return call(__func__, &::PKCS11_enumerate_certs, token, certs, ncerts);
}

} // extern "C"
