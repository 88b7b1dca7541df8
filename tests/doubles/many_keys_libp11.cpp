// A test double of libp11 with a token that requires no login. The environment variable MARVO_TEST_KEYS sets
// the number of its keys. They have the labels "key 0", "key 1", ..., and a certificate each.
#include <cstdlib>
#include <string>
#include <vector>

#include <libp11.h>

namespace {

struct Object {
    std::string label;
    unsigned char id[2];
};

char token_label[] = "Card";
PKCS11_CTX the_context{};
PKCS11_TOKEN the_token{};
PKCS11_SLOT the_slot{};

std::vector<Object>& objects() {
    static std::vector<Object> all = [] {
        std::vector<Object> made;
        const int count = std::atoi(std::getenv("MARVO_TEST_KEYS"));
        for (int i = 0; i < count; ++i)
            made.push_back({"key " + std::to_string(i),
                            {static_cast<unsigned char>(i >> 8), static_cast<unsigned char>(i & 0xff)}});
        return made;
    }();
    return all;
}

template <typename T>
int list_objects(T** found, unsigned int* count) {
    static std::vector<T> all = [] {
        std::vector<T> made(objects().size());
        for (std::size_t i = 0; i < made.size(); ++i) {
            made[i].label = objects()[i].label.data();
            made[i].id = objects()[i].id;
            made[i].id_len = sizeof objects()[i].id;
        }
        return made;
    }();
    *found = all.data();
    *count = static_cast<unsigned int>(all.size());
    return 0;
}

} // namespace

void ERR_load_PKCS11_strings() {}

PKCS11_CTX* PKCS11_CTX_new() { return &the_context; }

void PKCS11_CTX_free(PKCS11_CTX*) {}

int PKCS11_CTX_load(PKCS11_CTX*, const char*) { return 0; }

void PKCS11_CTX_unload(PKCS11_CTX*) {}

int PKCS11_enumerate_slots(PKCS11_CTX*, PKCS11_SLOT** slots, unsigned int* count) {
    the_token.label = token_label;
    the_token.initialized = 1;
    the_slot.token = &the_token;
    *slots = &the_slot;
    *count = 1;
    return 0;
}

void PKCS11_release_all_slots(PKCS11_CTX*, PKCS11_SLOT*, unsigned int) {}

PKCS11_SLOT* PKCS11_find_token(PKCS11_CTX*, PKCS11_SLOT* slots, unsigned int) { return slots; }

int PKCS11_is_logged_in(PKCS11_SLOT*, int, int*) { return -1; }

int PKCS11_login(PKCS11_SLOT*, int, const char*) { return -1; }

int PKCS11_enumerate_certs(PKCS11_TOKEN*, PKCS11_CERT** certs, unsigned int* count) {
    return list_objects(certs, count);
}

int PKCS11_enumerate_keys(PKCS11_TOKEN*, PKCS11_KEY** keys, unsigned int* count) {
    return list_objects(keys, count);
}

int PKCS11_enumerate_public_keys(PKCS11_TOKEN*, PKCS11_KEY** keys, unsigned int* count) {
    *keys = nullptr;
    *count = 0;
    return 0;
}
