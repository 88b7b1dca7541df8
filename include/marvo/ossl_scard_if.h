#ifndef KES_MARVO_OSSL_SCARD_IF_H_
#define KES_MARVO_OSSL_SCARD_IF_H_

#include <stddef.h>

struct evp_pkey_st; // OpenSSL's EVP_PKEY
struct x509_st;     // OpenSSL's X509

namespace Kes {

class OsslScardCfg; // marvo/ossl_scard_cfg.h

/// Smart-card client authentication: finds a private key on a card and hands it to the client's own TLS stack
/// as OpenSSL objects. The key itself never leaves the card.
///
/// There is one object in a process; get_ossl_scard_if() returns it and destroy() ends it. The usual order:
///
///     version_check, get_config_default (and its setters), init, read_scard,
///     is_pin_required (and set_pin), discover_keys, get_key_name / set_key, notify_config_done,
///     ossl_load, ossl_get_private_key, ossl_get_certificate, ... , ossl_unload, destroy
///
/// An operation that the current state does not allow fails and changes nothing. The states are
/// uninitialized, initialized (after init), configuring (after read_scard) and configured (after
/// notify_config_done); read_scard leads back from configured to configuring.
///
/// Operations that return int: 0 is success, 1 a failure whose text get_last_error_msg() tells, 255 an
/// exception of unknown kind. They never throw. An out-argument that is null makes the operation fail.
///
/// Everything handed out (configurations, key, certificate, texts) stays the library's: do not free it. Use
/// the object from one thread at a time; the library starts no threads and takes no lock for its callers.
///
/// The order of the virtual operations is the contract between clients and library: it never changes.
/// Compilers lay out overloads and virtual destructors differently; the two #if below make all of them agree.
class OsslScardIf {
public:
    /// Tells whether this library serves a client that was built for the given interface version.
    /// @param if_version  4; every other version is refused, older and newer alike
    virtual int version_check(unsigned int if_version) = 0;

    /// Makes a configuration with the default settings for the client to fill in.
    /// @return owned by the library; valid until the next get_config_default() or destroy()
    virtual OsslScardCfg* get_config_default() = 0;

    /// The configuration in use: the defaults before init(), the library's own copy afterwards.
    /// @return owned by the library; valid until a successful or failed init() replaces it, or destroy()
    virtual OsslScardCfg* get_config_used() = 0;

    /// Takes a copy of the configuration, applies the environment, loads the PKCS#11 module (pkcs11) and
    /// opens the log file. Allowed once, in state uninitialized; after a failure it may be called again. The
    /// log file is opened even when the rest failed, so that the reason stands in it. So it is by a call that
    /// is refused because of the state: unless appending is on, that empties the file.
    virtual int init(OsslScardCfg* cfg) = 0;

    /// Finds the card, or proves that its provider is there. Allowed after init(), any number of times.
    /// Forgets the keys found before: call discover_keys() again before a key number is used.
    virtual int read_scard() = 0;

    /// Whether the card read last wants a PIN from set_pin(). False for a reader with its own PIN pad.
    virtual bool is_pin_required() = 0;

    /// Stores the PIN until it is replaced, the card turns out to need none, or destroy(). Every stored copy
    /// is overwritten before it is dropped; the PIN is never logged. Allowed after read_scard(). The card
    /// itself judges the PIN in discover_keys() and in ossl_load(): each wrong one counts against its tries.
    /// @param pin  zero-terminated; must not be null
    virtual int set_pin(const char* pin) = 0;

    /// Logs in and finds the private keys whose certificates pass the configured filter; numbers them from 0.
    /// Allowed after read_scard(). Makes every earlier key number and get_key_name() text invalid.
    /// @param num_keys  the number of keys; written only on success
    virtual int discover_keys(size_t* num_keys) = 0;

    /// A text for people that tells key key_num from the others.
    /// @return valid until the next read_scard(), discover_keys() or destroy(); null when there is no such
    /// key
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

    /// Ends the selection: applies the environment once more and asks for a (re)load. Allowed after init()
    /// and after read_scard().
    virtual int notify_config_done() = 0;

    /// Loads the engine, the selected private key and its certificate. Allowed after notify_config_done().
    /// Does nothing when that was not called since the last successful load. After a failure it may be called
    /// again.
    virtual int ossl_load() = 0;

    /// Frees key and certificate. A new load needs read_scard() or destroy() first. Allowed after
    /// notify_config_done(). Drop every TLS object that uses them before.
    virtual int ossl_unload() = 0;

    /// The loaded private key, for SSL_CTX_use_PrivateKey() and the like.
    /// @param pkey  receives the key or, when none is loaded, null; no reference is added. Valid until
    ///              ossl_unload(), the next ossl_load() that loads, or destroy()
    virtual int ossl_get_private_key(evp_pkey_st** pkey) = 0;

    /// The certificate that belongs to the private key; as ossl_get_private_key().
    virtual int ossl_get_certificate(x509_st** cert) = 0;

protected:
#if defined(_MSC_VER)
    virtual ~OsslScardIf() {}
#else
    /// The destructor's entry. Call destroy() instead.
    virtual void* destructor_entry(unsigned int flags) = 0;
    ~OsslScardIf() = default;
#endif

public:
    /// The version of the library, such as "4.3.0". Valid until destroy().
    virtual const char* get_version() = 0;

    /// Ends the object and everything it handed out. get_ossl_scard_if() then makes a new one.
    virtual void destroy() = 0;

    /// The text of the last failure; empty after a success. Valid until the next operation of this object but
    /// this one.
    virtual const char* get_last_error_msg() = 0;

    /// Asks the user on the console for one of the keys that discover_keys() found. Reads one key at a time,
    /// without echo. Only chooses: hand the number to set_key().
    /// @param key_num  receives the number; written only on success
    virtual int select_key_from_console(size_t* key_num) = 0;
};

} // namespace Kes

/// The only function the library exports. Creates the object on the first call and after destroy().
/// @return the process-wide object, owned by the library: end it with destroy(), never with delete
extern "C" Kes::OsslScardIf* get_ossl_scard_if();

#endif // KES_MARVO_OSSL_SCARD_IF_H_
