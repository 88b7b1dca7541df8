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

/// An OpenSSL "dynamic" engine that does what it is told: this library's source defines the ENGINE_*
/// functions that ours call, in front of libcrypto's. Keys and certificates that it hands out are real and of
/// their own, and X509_free() and EVP_PKEY_free() are watched for them. Calls, failures and wrong uses go to
/// the CallScript, but for ENGINE_up_ref() and its likes, which only keep count. A reference that such a call
/// takes is no reason to call an engine alive: whoever takes it may keep it for good.
namespace Kes::test {

class ScriptedEngine {
public:
    static ScriptedEngine& instance();

    /// Back to an engine that finds nothing.
    void reset();

    EVP_PKEY* private_key = nullptr; ///< what a load gives a copy of; null makes the load fail. Lent
    EVP_PKEY* public_key = nullptr;
    X509* certificate = nullptr;                 ///< null makes LOAD_CERT_CTRL succeed without a certificate
    bool returns_certificate_on_failure = false; ///< fill the record even when LOAD_CERT_CTRL is to fail
    bool keys_hold_engine =
        false; ///< a key that was read uses the engine until it cleans up, as in libp11 0.4.12
    bool refuses_loaded_library = false; ///< LOAD fails while an engine that was loaded before is known
    bool refuses_key_engine = false;     ///< EVP_PKEY_set1_engine() fails
    bool has_finish_function = true;
    bool needs_right_pin = false; ///< fail to load a private key unless the last PIN was right

    std::size_t unreleased_engines() const;
    std::size_t initialised_engines() const; ///< that somebody uses still
    std::size_t loaded_engines() const;

    /// Lets all caches go that clean-ups would have ended.
    void break_cycles();
    std::size_t unreleased_objects() const { return objects_.size(); }

    // The functions below are what the ENGINE_* functions ask.
    ENGINE* add_engine();
    bool is_alive(const ENGINE* engine) const;
    bool is_known(const ENGINE* engine) const;     ///< alive, or held by a reference of ENGINE_up_ref() still
    bool is_forgotten(const ENGINE* engine) const; ///< of an earlier test
    void free_engine(ENGINE* engine);
    void lend(const EVP_PKEY* key); ///< a key made beside the engine's own
    EVP_PKEY* make_copy(EVP_PKEY* key);
    X509* make_copy(X509* cert);
    X509* track(X509* cert); ///< hands out this one, not a copy

    /// Takes note of the end of an object, if it was handed out here.
    void end_object(const char* function, const void* object);

private:
    ScriptedEngine();
    ~ScriptedEngine();

    std::vector<std::unique_ptr<ENGINE>> engines_;
    std::vector<std::unique_ptr<ENGINE>> freed_; // kept so that no later one gets the address of an earlier
    std::vector<std::unique_ptr<ENGINE>> forgotten_; // by reset()
    std::map<const void*, std::string> objects_;     // handed out and not yet freed, with their names
    int engines_made_ = 0;
    int keys_made_ = 0;
    int certs_made_ = 0;
    int keys_lent_ = 0;
};

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_SCRIPTED_ENGINE_H_
