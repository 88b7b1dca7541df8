// The test double of the card's module. Its name is the default in the settings.
#include <cstring>
#include <openssl/ecdsa.h>
#include <openssl/rsa.h>

#include "call_log.h"
#include "card_objects.h"

namespace Kes::test {
namespace {

/// State that all users of the module share, from initialize() to finalize().
struct Session {
    CardObjects objects;
    bool is_logged_in = false;
    bool hides_keys = true; // before the login
};

std::unique_ptr<Session>& session() {
    static auto* const current = new std::unique_ptr<Session>;
    return *current;
}

unsigned long require_session(const char* function) {
    if (session()) return card_ok;
    note_violation(std::string(function) + ": the module is not initialised");
    return not_initialized;
}

unsigned long initialize() {
    if (const unsigned long code = step("card.initialize", "")) return code;
    if (session()) return already_initialized;
    session() = std::make_unique<Session>();
    note_acquired("card");
    return card_ok;
}

/// The first call finalizes the module for all users in the process. This is not a violation.
unsigned long finalize() {
    note_call("card.finalize()");
    if (!session()) return not_initialized;
    session().reset();
    note_released("card");
    return card_ok;
}

unsigned long read_token(const CardToken** token) {
    if (const unsigned long code = require_session("card.read_token")) return code;
    *token = session()->objects.read_token();
    session()->hides_keys = *token != nullptr && (*token)->is_login_required;
    return card_ok;
}

unsigned long is_logged_in(bool* state) {
    if (const unsigned long code = require_session("card.is_logged_in")) return code;
    *state = session()->is_logged_in;
    return card_ok;
}

unsigned long login(const char* pin) {
    const std::string description = describe_pin(pin);
    if (const unsigned long code = step("card.login", description)) return code;
    if (const unsigned long code = require_session("card.login")) return code;
    if (session()->is_logged_in) return user_already_logged_in; // even with a wrong PIN
    if (description != "right pin") return pin_incorrect;
    session()->is_logged_in = true;
    return card_ok;
}

unsigned long close_sessions() {
    if (!session()) return not_initialized; // not a violation, as in finalize()
    session()->is_logged_in = false;
    return card_ok;
}

bool are_keys_hidden() { return session()->hides_keys && !session()->is_logged_in; }

unsigned long list(CardKind kind, const CardObject** objects, std::size_t* count) {
    if (const unsigned long code = require_session("card.list")) return code;
    *objects = nullptr;
    *count = 0;
    if (kind == CardKind::private_key && are_keys_hidden()) return card_ok;
    const std::vector<CardObject>& listed = session()->objects.list(kind);
    *objects = listed.data();
    *count = listed.size();
    return card_ok;
}

using KeyContextPtr = std::unique_ptr<EVP_PKEY_CTX, FreeWith<&::EVP_PKEY_CTX_free>>;
using EcdsaSignaturePtr = std::unique_ptr<ECDSA_SIG, FreeWith<&::ECDSA_SIG_free>>;

/// Converts an ECDSA signature from ASN.1 to r and s, which a card returns.
bool to_two_numbers(unsigned char* signature, std::size_t* size, int number_size) {
    const unsigned char* der = signature;
    const EcdsaSignaturePtr numbers(::d2i_ECDSA_SIG(nullptr, &der, static_cast<long>(*size)));
    *size = 2 * static_cast<std::size_t>(number_size);
    return numbers && ::BN_bn2binpad(::ECDSA_SIG_get0_r(numbers.get()), signature, number_size) > 0 &&
           ::BN_bn2binpad(::ECDSA_SIG_get0_s(numbers.get()), signature + number_size, number_size) > 0;
}

bool make_signature(EVP_PKEY* key, CardMechanism mechanism, const unsigned char* data, std::size_t data_size,
                    unsigned char* signature, std::size_t* size) {
    const KeyContextPtr context(::EVP_PKEY_CTX_new_from_pkey(session()->objects.context(), key, nullptr));
    if (!context || ::EVP_PKEY_sign_init(context.get()) != 1) return false;
    if (mechanism != CardMechanism::ecdsa &&
        ::EVP_PKEY_CTX_set_rsa_padding(
            context.get(), mechanism == CardMechanism::rsa_pkcs1 ? RSA_PKCS1_PADDING : RSA_NO_PADDING) != 1)
        return false;
    if (::EVP_PKEY_sign(context.get(), signature, size, data, data_size) != 1) return false;
    return mechanism != CardMechanism::ecdsa ||
           to_two_numbers(signature, size, (::EVP_PKEY_get_bits(key) + 7) / 8);
}

unsigned long sign(unsigned long handle, CardMechanism mechanism, const unsigned char* data,
                   std::size_t data_size, unsigned char* signature, std::size_t* size) {
    constexpr const char* names[] = {"RSA PKCS#1", "RSA", "ECDSA"};
    if (const unsigned long code = step("card.sign", names[static_cast<int>(mechanism)])) return code;
    if (const unsigned long code = require_session("card.sign")) return code;
    EVP_PKEY* key = session()->objects.find_private_key(handle);
    if (key == nullptr) return object_handle_invalid;
    if (are_keys_hidden()) return user_not_logged_in;
    return make_signature(key, mechanism, data, data_size, signature, size) ? card_ok : general_error;
}

constexpr CardApi api{&initialize, &finalize,       &read_token, &is_logged_in,
                      &login,      &close_sessions, &list,       &sign};

} // namespace
} // namespace Kes::test

extern "C" {

/// libp11 accepts a DLL with this function as a PKCS#11 module. There is no function list.
__declspec(dllexport) unsigned long C_GetFunctionList(void**) { return Kes::test::general_error; }

__declspec(dllexport) const Kes::test::CardApi* itp11_card() { return &Kes::test::api; }

} // extern "C"
