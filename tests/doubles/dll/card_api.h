#ifndef KES_TESTS_DOUBLES_DLL_CARD_API_H_
#define KES_TESTS_DOUBLES_DLL_CARD_API_H_

#include <cstddef>
#include <openssl/types.h>

/// What the test doubles of libp11 and of its engine ask of the card's module, in place of PKCS#11: the
/// module is one in name only, by the entry C_GetFunctionList. Functions answer with CKR_* numbers. What they
/// hand out stays the module's and is valid until finalize().
namespace Kes::test {

struct CardToken {
    const char* label;
    const char* manufacturer;
    const char* model;
    const char* serial;
    bool is_initialized;
    bool is_login_required;
    bool has_pin_pad;
};

enum class CardKind { certificate, private_key, public_key };

struct CardObject {
    unsigned long handle;
    const char* label;
    const unsigned char* id;
    std::size_t id_size;
    X509* certificate;    ///< of certificates
    EVP_PKEY* public_key; ///< of keys; in a library context of the module's own
};

enum class CardMechanism { rsa_pkcs1, rsa_raw, ecdsa };

/// One card for all in the process: they share its initialisation, its login and its end.
struct CardApi {
    unsigned long (*initialize)();
    unsigned long (*finalize)();
    /// Looks anew. Null when the reader is empty.
    unsigned long (*read_token)(const CardToken** token);
    unsigned long (*is_logged_in)(bool* state);
    unsigned long (*login)(const char* pin);
    /// Ends the login, too.
    unsigned long (*close_sessions)();
    /// Private keys only after the login that the token requires.
    unsigned long (*list)(CardKind kind, const CardObject** objects, std::size_t* count);
    /// @param size  in: the room for the signature; ECDSA gives its two numbers one behind the other
    unsigned long (*sign)(unsigned long handle, CardMechanism mechanism, const unsigned char* data,
                          std::size_t data_size, unsigned char* signature, std::size_t* size);
};

using GetCardApi = const CardApi* (*)();
constexpr const char* card_api_entry = "itp11_card";

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_DLL_CARD_API_H_
