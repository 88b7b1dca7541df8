#include "error_texts.h"

#include <openssl/err.h>

namespace Kes::test {
namespace {

/// A library that raises errors. Its texts are not const because OpenSSL adds the library number to them.
struct Library {
    const char* name;
    ERR_STRING_DATA* reasons;
    int number = 0;
    ERR_STRING_DATA title[2] = {};

    int get_number() {
        if (number == 0) number = ::ERR_get_next_error_library();
        return number;
    }
};

ERR_STRING_DATA module_reasons[] = {{ERR_PACK(0, 0, 0x5), "General Error"},
                                    {ERR_PACK(0, 0, 0x82), "Object handle invalid"},
                                    {ERR_PACK(0, 0, 0xa0), "PIN incorrect"},
                                    {ERR_PACK(0, 0, 0xa4), "PIN locked"},
                                    {ERR_PACK(0, 0, 0x101), "User not logged in"},
                                    {ERR_PACK(0, 0, 0x190), "Cryptoki not initialized"},
                                    {ERR_PACK(0, 0, 0x30), "Device error"},
                                    {ERR_PACK(0, 0, 0xe0), "Token not present"},
                                    {0, nullptr}};
ERR_STRING_DATA libp11_reasons[] = {{ERR_PACK(0, 0, unable_to_load_module), "Unable to load PKCS#11 module"},
                                    {0, nullptr}};
ERR_STRING_DATA engine_reasons[] = {{ERR_PACK(0, 0, engine_invalid_parameter), "invalid parameter"},
                                    {ERR_PACK(0, 0, engine_object_not_found), "object not found"},
                                    {0, nullptr}};

Library libraries[] = {
    {"PKCS#11 module", module_reasons}, {"libp11", libp11_reasons}, {"pkcs11 engine", engine_reasons}};
bool are_loaded = false;

void raise(Library& library, int reason, const char* function) {
    load_error_texts();
    ::ERR_new();
    ::ERR_set_debug("double", 1, function);
    ::ERR_set_error(library.get_number(), reason, "%s", function);
}

} // namespace

void load_error_texts() {
    if (are_loaded) return;
    for (Library& library : libraries) {
        library.title[0] = {ERR_PACK(library.get_number(), 0, 0), library.name};
        ::ERR_load_strings(0, library.title);
        ::ERR_load_strings(library.get_number(), library.reasons);
    }
    are_loaded = true;
}

void unload_error_texts() {
    if (!are_loaded) return;
    for (Library& library : libraries) {
        ::ERR_unload_strings(0, library.title);
        ::ERR_unload_strings(library.get_number(), library.reasons);
    }
    are_loaded = false;
}

void raise_module_error(unsigned long code, const char* function) {
    raise(libraries[0], static_cast<int>(code), function);
}

void raise_libp11_error(int reason, const char* function) { raise(libraries[1], reason, function); }

void raise_engine_error(int reason, const char* function) { raise(libraries[2], reason, function); }

} // namespace Kes::test
