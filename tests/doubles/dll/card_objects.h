#ifndef KES_TESTS_DOUBLES_DLL_CARD_OBJECTS_H_
#define KES_TESTS_DOUBLES_DLL_CARD_OBJECTS_H_

#include <deque>
#include <string>
#include <vector>

#include "card_api.h"
#include "utils/ossl_ptr.h"

namespace Kes::test {

/// The token and its objects, read from the card's folder.
///
/// The file "token" contains the lines "label=", "manufacturer=", "model=", "serial=", "initialized=",
/// "login_required=", "pin_pad=", "pin_final_try=", "pin_locked=" (0 or 1), "second_label=" and
/// "pin_sha256=". Without this file, the reader is empty.
/// A line of the file "objects" is "id=kinds name label": the id in hexadecimal, the kinds as letters (c
/// certificate, k private key, p public key), the name of the files (name.crt and name.key, PEM), and the
/// label.
class CardObjects {
public:
    CardObjects();

    /// Null if the reader is empty.
    const CardToken* read_token();

    /// The current objects of a kind, with new handles.
    const std::vector<CardObject>& list(CardKind kind);

    /// The private key with a handle from list(); null if there is none.
    EVP_PKEY* find_private_key(unsigned long handle) const;

    OSSL_LIB_CTX* context() const { return context_.get(); }

private:
    struct Token {
        std::string label, manufacturer, model, serial, second_label;
        CardToken out;
    };
    struct Object {
        unsigned long handle;
        std::string label;
        std::vector<unsigned char> id;
        X509Ptr certificate;
        EvpPkeyPtr key;
    };

    void add(CardKind kind, const std::string& id, const std::string& file, const std::string& label);

    // Without engines: otherwise an operation with the card's key would call the engine again.
    std::unique_ptr<OSSL_LIB_CTX, FreeWith<&::OSSL_LIB_CTX_free>> context_;
    std::deque<Token> tokens_;
    std::deque<Object> objects_;
    std::deque<std::vector<CardObject>> lists_;
    unsigned long last_handle_ = 0;
};

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_DLL_CARD_OBJECTS_H_
