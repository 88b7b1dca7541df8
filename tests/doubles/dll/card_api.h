#ifndef KES_TESTS_DOUBLES_DLL_CARD_API_H_
#define KES_TESTS_DOUBLES_DLL_CARD_API_H_

#include <cstddef>
#include <openssl/types.h>

/// The interface between the card's module and the test doubles of libp11 and its engine. It replaces
/// PKCS#11, of which the module only exports C_GetFunctionList. Functions return CKR_* values. The module
/// owns the returned objects, which are valid until finalize().
namespace Kes::test {

struct CardToken {
    const char* label;
    const char* manufacturer;
    const char* model;
    const char* serial;
    bool is_initialized;
    bool is_login_required;
    bool has_pin_pad;
    bool is_final_try;
    bool is_locked;
    const char* second_label; ///< of another token in a second reader; empty if there is none
};

enum class CardKind { certificate, private_key, public_key };

struct CardObject {
    unsigned long handle;
    const char* label;
    const unsigned char* id;
    std::size_t id_size;
    X509* certificate;    ///< of certificates
    EVP_PKEY* public_key; ///< of keys; in the module's own library context
};

enum class CardMechanism { rsa_pkcs1, rsa_raw, ecdsa };

/// All users in the process share the card's initialisation, login and finalization.
struct CardApi {
    unsigned long (*initialize)();
    unsigned long (*finalize)();
    /// Reads the token again. Null if the reader is empty.
    unsigned long (*read_token)(const CardToken** token);
    unsigned long (*is_logged_in)(bool* state);
    unsigned long (*login)(const char* pin);
    /// Also ends the login.
    unsigned long (*close_sessions)();
    /// Private keys are listed only after the login, if the token requires one.
    unsigned long (*list)(CardKind kind, const CardObject** objects, std::size_t* count);
    /// An ECDSA signature consists of r and s, without ASN.1.
    /// @param size  in: the size of the buffer; out: the size of the signature
    unsigned long (*sign)(unsigned long handle, CardMechanism mechanism, const unsigned char* data,
                          std::size_t data_size, unsigned char* signature, std::size_t* size);
};

using GetCardApi = const CardApi* (*)();
constexpr const char* card_api_entry = "itp11_card";

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_DLL_CARD_API_H_
