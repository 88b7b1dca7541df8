#ifndef KES_MARVO_OSSL_SCARD_IF_H_
#define KES_MARVO_OSSL_SCARD_IF_H_

/// @file
/// The interface of the library for C++.
#include <stddef.h>

struct evp_pkey_st; // OpenSSL's EVP_PKEY
struct x509_st;     // OpenSSL's X509

namespace Kes {

class OsslScardCfg; // marvo/ossl_scard_cfg.h

/// TLS client authentication with a smart card. Finds a private key on the card and gives it, with its
/// certificate, to the client's own TLS stack as OpenSSL objects. The key never leaves the card.
///
/// A process has one object: get_ossl_scard_if() returns it, and destroy() destroys it. The usual order of
/// calls:
///
///     version_check, get_config_default (and its setters), init, read_scard,
///     is_pin_required (and set_pin), discover_keys, get_key_name / set_key, notify_config_done,
///     ossl_load, ossl_get_private_key, ossl_get_certificate, ... , ossl_unload, destroy
///
/// States: uninitialized, initialized (after init), configuring (after read_scard) and configured (after
/// notify_config_done). read_scard also leads from configured back to configuring. "States:" at an operation
/// lists where it is allowed; without such a line, it is allowed in every state. An operation that fails does
/// not change the state, apart from the case noted at init(). If it fails because of the state, it changes
/// nothing else, with two exceptions: init() opens the log file again and may empty it, and discover_keys()
/// makes the earlier key numbers invalid.
///
/// Errors: an operation that returns int returns 0 on success and 1 on failure; 255 means that it failed with
/// an exception of unknown type. get_last_error_msg() returns the message. No exception escapes from these
/// operations, apart from the case noted at init(). Out-arguments must not be null; a null pointer makes the
/// operation fail. A failed operation does not write to its out-argument.
///
/// Other operations may let std::bad_alloc escape when memory has run out, where this is noted. Only clients
/// in C++ can catch it.
///
/// Ownership: the library owns all objects and text that it returns; do not free them. It copies what clients
/// pass in. Text is zero-terminated.
///
/// Threads: use the object and its configurations from one thread at a time. The library starts no threads
/// and locks nothing on behalf of its callers.
///
/// The order of the virtual operations is the binary contract between clients and library and never changes.
/// Compilers arrange overloads and virtual destructors differently; the two #if below make the results equal.
class OsslScardIf {
public:
    /// Checks that the library supports the interface version of the client.
    /// @param if_version  the version that the client was built for: 4. The operation fails for every other
    ///                    value.
    virtual int version_check(unsigned int if_version) = 0;

    /// Creates a configuration with the default settings, which the client changes and passes to init(). May
    /// let std::bad_alloc escape.
    /// @return never null; valid until the next get_config_default() or destroy()
    virtual OsslScardCfg* get_config_default() = 0;

    /// Returns the configuration in use: default settings before init(), and the library's copy of the
    /// client's settings afterwards. Its setters change the settings in use. May let std::bad_alloc escape.
    /// @return never null; valid until the next init(), even if it fails, or destroy()
    virtual OsslScardCfg* get_config_used() = 0;

    /// Copies the configuration, applies the environment, loads the PKCS#11 module (pkcs11 only) and opens
    /// the log file. States: uninitialized.
    ///
    /// The operation opens the log file even if it has failed, so that the log contains the reason. This also
    /// happens if the state does not allow the call. Opening empties the file unless append mode is on.
    ///
    /// If only the log file cannot be opened, the operation returns 1, but the state is initialized and the
    /// library works without a log. Another init() is then not allowed, and fails with the old path. To get a
    /// log, call destroy() and start from the beginning. After any other failure, init() may be called again.
    /// If the log file cannot be opened either, get_last_error_msg() has only the text about the log file;
    /// read_scard() shows whether init() has succeeded.
    ///
    /// An operation of a client's own configuration class may throw. The exception may escape if it is not a
    /// std::exception (clients in C++ only).
    /// @param cfg  must not be null; may be changed or destroyed after the call
    virtual int init(OsslScardCfg* cfg) = 0;

    /// Finds the card (pkcs11), or checks that the CryptoAPI provider can be opened (capi). With capi_store,
    /// only the state changes. States: initialized, configuring, configured.
    ///
    /// Discards the keys of an earlier discover_keys(), even if it fails: their numbers and names become
    /// invalid. Does not end a login: the user stays logged in to the card until destroy(). With pkcs11, each
    /// further round of read_scard() and discover_keys() after a login keeps one more session open. A client
    /// that makes many rounds should call destroy() now and then, because a card may have few sessions.
    virtual int read_scard() = 0;

    /// Whether the card that read_scard() found needs a PIN from set_pin(). False before read_scard() and
    /// after it has failed, for a reader with its own PIN pad, and for capi and capi_store, where Windows
    /// asks for the PIN. May let std::bad_alloc escape.
    virtual bool is_pin_required() = 0;

    /// Stores a copy of the PIN for discover_keys() and ossl_load(). States: configuring.
    ///
    /// The copy is kept until another PIN replaces it, read_scard() finds that no PIN is needed, or
    /// destroy(). The library overwrites it before it releases the memory, and never logs it. set_pin() does
    /// not check the PIN; the card does, in discover_keys() and ossl_load(), and counts each wrong PIN as a
    /// failed try. Once the user is logged in, a wrong PIN goes unnoticed until destroy().
    /// @param pin  must not be null
    virtual int set_pin(const char* pin) = 0;

    /// Logs in if the card needs a PIN, finds the private keys whose certificates pass the configured filter,
    /// and numbers them from 0. States: configuring.
    ///
    /// Earlier key numbers and get_key_name() texts become invalid, even if the operation fails, for example
    /// because of the state. The order of the keys may differ from run to run.
    ///
    /// With pkcs11 and libp11 0.4.12 or 0.4.13, the operation does not return if the card refuses to open a
    /// session, for example after it was removed while the user typed the PIN. After a PIN dialog, call
    /// read_scard() once more: it reports a missing card, and the PIN stays set. docs/libp11.md lists the
    /// versions of libp11 that report the reason instead.
    /// @param num_keys  receives the number of keys, possibly 0; unchanged on failure
    virtual int discover_keys(size_t* num_keys) = 0;

    /// Returns a name for display. Two keys can have the same name.
    /// @param key_num  a number below num_keys of the last discover_keys()
    /// @return valid until the next read_scard(), discover_keys() or destroy(); null on failure, such as an
    ///         invalid number
    virtual const char* get_key_name(size_t key_num) = 0;

    /// set_key() has two overloads. Both select a key for the next ossl_load(): they store its key type, its
    /// name and the name of its certificate in the configuration in use. States: configuring, after
    /// discover_keys(). If the key does not exist, nothing changes. If its certificate is not found, the key
    /// type and the key name are already stored.
    ///
    /// - set_key(size_t key_num) selects a key by its number.
    ///   - key_num: a number below num_keys of the last discover_keys()
    ///
    /// - set_key(unsigned int key_type, const char* key_id) selects the first key of that type and
    ///   identifier. The identifier stays the same from run to run.
    ///   - key_type: 1 (AT_KEYEXCHANGE) or 2 (AT_SIGNATURE) for capi; 0 for pkcs11 and capi_store
    ///   - key_id: must not be null. For capi, the name of the key container. For capi_store, the
    ///     certificate's simple subject name, as get_key_name() returns it. For pkcs11, the object id
    ///     (CKA_ID), in the percent-encoding of PKCS#11 URIs: "%" and two lower-case hexadecimal digits for
    ///     every byte, such as "%01%ab"
#if defined(_MSC_VER) // these compilers put adjacent overloads into the table in reverse order
    virtual int set_key(size_t key_num) = 0;
    virtual int set_key(unsigned int key_type, const char* key_id) = 0;
#else
    virtual int set_key(unsigned int key_type, const char* key_id) = 0;
    virtual int set_key(size_t key_num) = 0;
#endif

    /// Completes the configuration: applies the environment again, which may override set_key(), and makes
    /// the next ossl_load() load. States: initialized, configuring.
    virtual int notify_config_done() = 0;

    /// Loads the configured private key and certificate. The first call also loads the OpenSSL engine of the
    /// back-end, which remains until destroy(). States: configured.
    ///
    /// Does nothing and returns 0 if it has already succeeded since the last notify_config_done(), even if
    /// ossl_unload() was called in between. Otherwise it frees the objects of an earlier load first. After a
    /// failure, no key is loaded, and the operation may be called again.
    ///
    /// pkcs11: passes the PIN to the engine, even if none was set. If the card needs a login, the engine logs
    /// in with it, and an empty PIN may cost one of the card's tries. Therefore call set_pin() first if
    /// is_pin_required() returns true.
    ///
    /// With pkcs11, the engine of libp11 0.4.12 lists the objects of the card at its first load and keeps the
    /// list until destroy(). If the card fails while it is listed, every later call fails too ("object not
    /// found" or "error reading certificate"), even after another read_scard(). Then call destroy() and start
    /// again.
    ///
    /// With pkcs11 and libp11 0.4.12 or 0.4.13, the operation does not return if the card refuses to open a
    /// session; see discover_keys(). The engine opens one of its own. If the card allows only one session, do
    /// not call discover_keys(), but set priv_key_name and cert_name in the configuration.
    virtual int ossl_load() = 0;

    /// Frees the key and the certificate; without them, it does nothing. States: configured. Free every TLS
    /// object that uses the key first. To load again, start at read_scard().
    virtual int ossl_unload() = 0;

    /// Returns the loaded private key, for example for SSL_CTX_use_PrivateKey(). Succeeds even if no key is
    /// loaded.
    /// @param pkey  receives the key, or null if none is loaded; unchanged on failure. The library adds no
    ///              reference: the key is valid until ossl_unload(), the next ossl_load() that loads, or
    ///              destroy().
    ///
    /// Free everything that was made from the key before destroy(): TLS objects, references added with
    /// EVP_PKEY_up_ref(), duplicates, and each RSA or EC_KEY that was extracted from it. As long as one of
    /// them exists after destroy(), the engine stays loaded, and ossl_load() fails in the next lifetime.
    /// Freeing it later is safe, but must happen before the next init(): otherwise, ossl_load() fails until
    /// another destroy() and init(). Using it after destroy() is not safe.
    virtual int ossl_get_private_key(evp_pkey_st** pkey) = 0;

    /// Returns the loaded certificate. Succeeds even if none is loaded.
    /// @param cert  receives the certificate, or null if none is loaded. Otherwise like pkey above.
    virtual int ossl_get_certificate(x509_st** cert) = 0;

protected:
#if defined(_MSC_VER)
    virtual ~OsslScardIf() {}
#else
    /// The table entry of the destructor. Clients call destroy() instead.
    virtual void* destructor_entry(unsigned int flags) = 0;
    ~OsslScardIf() = default;
#endif

public:
    /// Returns the version of the library, such as "4.3.0". May let std::bad_alloc escape.
    /// @return never null; valid until destroy()
    virtual const char* get_version() = 0;

    /// Destroys the object and everything that it returned, except clones of configurations. Free every TLS
    /// object that uses the key first. The next get_ossl_scard_if() creates a new object.
    virtual void destroy() = 0;

    /// Returns the message of the last operation: empty if it succeeded. A message may have several lines,
    /// each but the last ended by "\n".
    /// @return never null; valid until the next operation of this object other than get_last_error_msg()
    virtual const char* get_last_error_msg() = 0;

    /// Shows a menu of the keys that discover_keys() found on standard output and reads the user's choice
    /// from standard input, one key at a time and without echo. Waits until the user chooses or aborts.
    /// Selects no key: pass the number to set_key().
    /// @param key_num  receives the number; unchanged on failure, including a user abort
    virtual int select_key_from_console(size_t* key_num) = 0;
};

} // namespace Kes

/// The only function that the library exports. Returns the object of the process. The first call, and the
/// first call after destroy(), creates it and may let std::bad_alloc escape.
/// @return never null; owned by the library. Destroy it with destroy(), never with delete.
extern "C" Kes::OsslScardIf* get_ossl_scard_if();

#endif // KES_MARVO_OSSL_SCARD_IF_H_
