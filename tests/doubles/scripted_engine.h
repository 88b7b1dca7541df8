#ifndef KES_TESTS_DOUBLES_SCRIPTED_ENGINE_H_
#define KES_TESTS_DOUBLES_SCRIPTED_ENGINE_H_

#include <cstddef>
#include <map>
#include <memory>
#include <openssl/evp.h>
#include <openssl/types.h>
#include <openssl/x509.h>
#include <string>
#include <vector>

#include "call_script.h"

/// A test double of OpenSSL's "dynamic" engine. The source defines the ENGINE_* functions that the library
/// calls, which take precedence over libcrypto's. The engine returns real copies of keys and certificates,
/// and tracks them through X509_free() and EVP_PKEY_free(). Calls, planned failures and violations go to the
/// CallScript. References taken by ENGINE_up_ref() are only counted: they do not keep an engine alive,
/// because the caller may keep them permanently.
namespace Kes::test {

class ScriptedEngine {
public:
    static ScriptedEngine& instance();

    /// Restores the initial state, in which the engine has no keys and no certificate.
    void reset();

    EVP_PKEY* private_key = nullptr; ///< borrowed; a load returns a copy, or fails if it is null
    EVP_PKEY* public_key = nullptr;
    X509* certificate = nullptr;                 ///< null makes LOAD_CERT_CTRL succeed without a certificate
    bool returns_certificate_on_failure = false; ///< set the certificate even when LOAD_CERT_CTRL fails

    /// The first loaded key takes a functional reference that only clean-up drops, as in libp11 0.4.12.
    bool keys_hold_engine = false;
    const char* loaded_id = "pkcs11";    ///< the engine's id after LOAD; null if it has none
    std::string unknown_command;         ///< a control command that the engine does not have
    bool refuses_loaded_library = false; ///< LOAD fails while an engine that was loaded before exists
    bool refuses_key_engine = false;     ///< EVP_PKEY_set1_engine() fails
    bool has_finish_function = true;
    bool needs_right_pin = false; ///< loading a private key fails unless the last PIN was right

    std::size_t unreleased_engines() const;
    std::size_t initialised_engines() const; ///< with functional references
    std::size_t loaded_engines() const;

    /// Clears the key caches of all engines, as their clean-up would.
    void break_cycles();

    /// Calls the finish function of the newest engine for a copy of that engine. @return its result
    int finish_copy() const;
    std::size_t unreleased_objects() const { return objects_.size(); }

    // The functions below are for the ENGINE_* functions.
    ENGINE* add_engine();
    bool is_alive(const ENGINE* engine) const;
    bool is_known(const ENGINE* engine) const;     ///< alive, or referenced through ENGINE_up_ref()
    bool is_forgotten(const ENGINE* engine) const; ///< created in an earlier test
    void free_engine(ENGINE* engine);
    void track(const EVP_PKEY* key); ///< tracks a key that the engine did not create
    X509* track(X509* cert);         ///< tracks and returns this certificate
    EVP_PKEY* make_copy(EVP_PKEY* key);
    X509* make_copy(X509* cert);

    /// Records that a tracked object was freed.
    void end_object(const char* function, const void* object);

private:
    ScriptedEngine();
    ~ScriptedEngine();

    std::vector<std::unique_ptr<ENGINE>> engines_;
    std::vector<std::unique_ptr<ENGINE>> freed_; // kept so that no engine gets the address of an earlier one
    std::vector<std::unique_ptr<ENGINE>> forgotten_; // by reset()
    std::map<const void*, std::string> objects_;     // tracked and not yet freed, with their names
    int engines_made_ = 0;
    int keys_made_ = 0;
    int certs_made_ = 0;
    int keys_tracked_ = 0;
};

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_SCRIPTED_ENGINE_H_
