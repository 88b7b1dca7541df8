#ifndef KES_TESTS_DOUBLES_SCRIPTED_LIBP11_H_
#define KES_TESTS_DOUBLES_SCRIPTED_LIBP11_H_

#include <cstddef>
#include <libp11.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "call_script.h"

/// A test double of libp11. The source defines the PKCS11_* functions that the library calls. Calls, planned
/// failures and violations go to the CallScript.
namespace Kes::test {

using ScriptedText = std::optional<std::string>; ///< without a value: a null pointer

/// A certificate or a key on a token.
struct ScriptedObject {
    ScriptedText label;
    std::vector<unsigned char> id; ///< empty: a null pointer and length 0
    X509* x509 = nullptr;          ///< of a certificate; borrowed, each enumeration returns a copy
};

struct ScriptedToken {
    ScriptedText label = "Token 1";
    ScriptedText manufacturer = "Maker";
    ScriptedText model = "Model 7";
    ScriptedText serialnr = "0042";
    bool is_initialized = true;
    unsigned char loginRequired = 1;
    unsigned char secureLogin = 0;
    std::vector<ScriptedObject> certs;
    std::vector<ScriptedObject> private_keys; ///< shown only after the login that the token requires
    std::vector<ScriptedObject> public_keys;
};

struct ScriptedSlot {
    ScriptedText manufacturer = "Slot maker";
    ScriptedText description = "Slot 1";
    std::optional<ScriptedToken> token;
};

class ScriptedLibp11 {
public:
    static ScriptedLibp11& instance();

    /// Restores the initial state, without slots and login. Frees what was not released.
    void reset();

    ScriptedText manufacturer = "Module maker";
    ScriptedText description = "Module";
    std::vector<ScriptedSlot> slots;
    bool is_logged_in = false;
    ScriptedText queued_by_free; ///< put on OpenSSL's error queue by PKCS11_CTX_free()

    std::size_t unreleased_contexts() const;
    std::size_t unreleased_slot_arrays() const;

    struct Context;
    struct SlotArray;

    // The functions below are for the PKCS11_* functions.
    Context* find(const PKCS11_CTX* ctx, const std::string& caller);
    SlotArray* find_array(const PKCS11_SLOT* slots_in, const std::string& caller);
    std::string name_of(const PKCS11_SLOT* slot, const std::string& caller);
    std::string name_of(const PKCS11_TOKEN* token, const std::string& caller);
    ScriptedToken* script_of(const PKCS11_TOKEN* token);
    SlotArray* array_of(const PKCS11_TOKEN* token);
    Context* add_context();
    SlotArray* add_slot_array(Context* owner);
    void free_context(Context* context);
    void free_slot_array(SlotArray* array);

private:
    ScriptedLibp11();
    ~ScriptedLibp11();

    std::vector<std::unique_ptr<Context>> contexts_;
    std::vector<std::unique_ptr<SlotArray>> arrays_;
    int contexts_made_ = 0;
    int arrays_made_ = 0;
};

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_SCRIPTED_LIBP11_H_
