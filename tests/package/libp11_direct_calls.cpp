// Imports libp11 with delay, as the DLL does. Calls every imported function without loading libp11 first, and
// writes the results to the file in the argument.
#include <cstdio>
#include <libp11.h>
#include <p11_err.h>

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    std::FILE* output = std::fopen(argv[1], "wb");
    unsigned int count = 0;
    int answer = 0;
    ::ERR_load_PKCS11_strings();
    ::PKCS11_CTX_unload(nullptr);
    ::PKCS11_CTX_free(nullptr);
    ::PKCS11_release_all_slots(nullptr, nullptr, 0);
    std::fprintf(output, "PKCS11_CTX_new: %s\n", ::PKCS11_CTX_new() == nullptr ? "null" : "a pointer");
    std::fprintf(output, "PKCS11_find_token: %s\n",
                 ::PKCS11_find_token(nullptr, nullptr, 0) == nullptr ? "null" : "a pointer");
    std::fprintf(output, "PKCS11_CTX_load: %d\n", ::PKCS11_CTX_load(nullptr, "module.dll"));
    std::fprintf(output, "PKCS11_enumerate_slots: %d\n", ::PKCS11_enumerate_slots(nullptr, nullptr, &count));
    std::fprintf(output, "PKCS11_is_logged_in: %d\n", ::PKCS11_is_logged_in(nullptr, 0, &answer));
    std::fprintf(output, "PKCS11_login: %d\n", ::PKCS11_login(nullptr, 0, "1234"));
    std::fprintf(output, "PKCS11_enumerate_certs: %d\n", ::PKCS11_enumerate_certs(nullptr, nullptr, &count));
    std::fprintf(output, "PKCS11_enumerate_keys: %d\n", ::PKCS11_enumerate_keys(nullptr, nullptr, &count));
    std::fprintf(output, "PKCS11_enumerate_public_keys: %d\n",
                 ::PKCS11_enumerate_public_keys(nullptr, nullptr, &count));
    std::fprintf(output, "PKCS11_update_slots: %d\n", ::PKCS11_update_slots(nullptr, nullptr, &count));
    std::fclose(output);
    return 0;
}
