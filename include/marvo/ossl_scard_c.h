#ifndef KES_MARVO_OSSL_SCARD_C_H_
#define KES_MARVO_OSSL_SCARD_C_H_

/// @file
/// The interface of the library for C99, and for every language that can call C functions by their address.
///
/// The library returns two kinds of objects: OsslScardIf and OsslScardCfg. The first word of an object is the
/// address of its table, an array of function pointers. Every function receives the object as its first
/// argument:
///
///     OsslScardIf* card = get_ossl_scard_if();
///     if (card->table->version_check(card, ossl_scard_if_version) != ossl_scard_success) ...
///
/// Indices count from 0, as in every C array: version_check is at index 0, destructor at index 16. The order
/// never changes, because it is the binary contract between clients and library.
///
/// Calling convention: that of C functions on the system. Windows x64 has only one, so __cdecl and __stdcall
/// mean the same there. On Linux x86-64, it is the System V convention. There is no 32-bit version for
/// Windows.
///
/// Types: bool is C's bool and C++'s bool, one byte that is 0 or 1. unsigned int has 32 bits, size_t has 64.
///
/// Text: zero-terminated and in the encoding of the system's file functions (Windows: the ANSI code page).
/// The library copies all text that it receives.
///
/// Ownership: the library owns all objects and text that it returns, except clones. Do not free them.
///
/// States: uninitialized, initialized (after init), configuring (after read_scard) and configured (after
/// notify_config_done). read_scard also leads from configured back to configuring. "States:" lists where a
/// function is allowed; without such a line, it is allowed in every state. A failure does not change the
/// state, apart from the case noted at init.
///
/// Errors: a function that returns int returns ossl_scard_success, ossl_scard_failure or
/// ossl_scard_unknown_exception; get_last_error_msg returns the message. Out-arguments must not be null; a
/// null pointer makes the function fail. A failed function does not write to its out-argument. When memory
/// has run out, the functions that are marked "may throw" can end the process of a client in C.
///
/// Threads: use the objects from one thread at a time.
///
/// In C++, a source file includes this header or those with the classes (marvo/ossl_scard_if.h and
/// marvo/ossl_scard_cfg.h), but not both: they declare get_ossl_scard_if with different types.
#include <stdbool.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

struct evp_pkey_st; ///< OpenSSL's EVP_PKEY
struct x509_st;     ///< OpenSSL's X509

/// The interface version of this header, for version_check.
enum { ossl_scard_if_version = 4 };

/// What a function that returns int can return.
enum {
    ossl_scard_success = 0,
    ossl_scard_failure = 1,
    ossl_scard_unknown_exception = 255 ///< failed with an exception of unknown type
};

/// The back-ends: where the keys are stored. The library stores other values too and calls them "unknown".
enum {
    ossl_scard_capi = 1,      ///< key containers of a CryptoAPI provider (Windows only)
    ossl_scard_pkcs11 = 2,    ///< a PKCS#11 token
    ossl_scard_capi_store = 3 ///< a certificate store of the current Windows user (Windows only)
};

/// The key types. With pkcs11 and capi_store, every key has the type 0.
enum {
    ossl_scard_key_without_type = 0,
    ossl_scard_key_exchange = 1, ///< AT_KEYEXCHANGE of CryptoAPI
    ossl_scard_key_signature = 2 ///< AT_SIGNATURE of CryptoAPI
};

/// How certificates are filtered by their key usage or extended key usage. Other values mean the same as
/// ossl_scard_filter_exact.
enum {
    ossl_scard_filter_all = 0,       ///< every certificate passes
    ossl_scard_filter_exact = 1,     ///< the certificate has the required usage
    ossl_scard_filter_exact_none = 2 ///< the certificate has the required usage, or lists no usage at all
};

/// The severities of log lines, for the sum in logfile_severity.
enum {
    ossl_scard_log_trace = 1,
    ossl_scard_log_debug = 2,
    ossl_scard_log_info = 4,
    ossl_scard_log_warn = 8,
    ossl_scard_log_error = 16,
    ossl_scard_log_fatal = 32
};

typedef struct OsslScardIf OsslScardIf;
typedef struct OsslScardIfTable OsslScardIfTable;
typedef struct OsslScardCfg OsslScardCfg;
typedef struct OsslScardCfgTable OsslScardCfgTable;

/// The object of the process: TLS client authentication with a smart card. It finds a private key on the card
/// and gives it, with its certificate, to the client's own TLS stack. The key never leaves the card.
struct OsslScardIf {
    const OsslScardIfTable* table; ///< 21 functions
};

/// The settings of the library.
struct OsslScardCfg {
    const OsslScardCfgTable* table; ///< 40 functions
};

/// The functions of OsslScardIf. The usual order of calls: version_check, get_config_default and its setters,
/// init, read_scard, is_pin_required and set_pin, discover_keys, get_key_name, set_key_by_id or
/// set_key_by_number, notify_config_done, ossl_load, ossl_get_private_key, ossl_get_certificate, TLS,
/// ossl_unload, destroy.
struct OsslScardIfTable {
    /// 0: Checks that the library supports the interface version of the client.
    /// @param if_version  ossl_scard_if_version; every other value fails
    int (*version_check)(OsslScardIf* self, unsigned int if_version);

    /// 1: Creates a configuration with the default settings. May throw.
    /// @return never null; valid until the next get_config_default or destroy
    OsslScardCfg* (*get_config_default)(OsslScardIf* self);

    /// 2: Returns the configuration in use: default settings before init, the library's own copy afterwards.
    /// Its setters change the settings in use. May throw.
    /// @return never null; valid until the next init, even if it fails, or destroy
    OsslScardCfg* (*get_config_used)(OsslScardIf* self);

    /// 3: Copies the configuration, applies the environment, loads the PKCS#11 module (pkcs11 only) and
    /// opens the log file. States: uninitialized.
    ///
    /// If only the log file cannot be opened, it fails, but the state is initialized and the library works
    /// without a log: show the message and call read_scard, which fails because of the state if anything else
    /// was wrong. Every call opens the log file, even one that fails, and empties it unless append mode is
    /// on.
    /// @param cfg  must not be null; may be changed or destroyed after the call. A client may pass an object
    ///             with a table of its own that fills all 40 entries; the library calls its clone, and owns
    ///             the object that clone returns.
    int (*init)(OsslScardIf* self, OsslScardCfg* cfg);

    /// 4: Finds the card (pkcs11), or checks that the CryptoAPI provider can be opened (capi). With
    /// capi_store, only the state changes. States: initialized, configuring, configured.
    ///
    /// Discards the keys of an earlier discover_keys, even if it fails. Does not end a login.
    int (*read_scard)(OsslScardIf* self);

    /// 5: Whether the card that read_scard found needs a PIN from set_pin. False before read_scard and after
    /// it has failed, for a reader with its own PIN pad, and for capi and capi_store, where Windows asks for
    /// the PIN. May throw.
    bool (*is_pin_required)(OsslScardIf* self);

    /// 6: Stores a copy of the PIN for discover_keys and ossl_load. States: configuring.
    ///
    /// Does not check the PIN: the card does, in discover_keys and ossl_load, and counts each wrong PIN as a
    /// failed try. The library overwrites its copy before it frees it. Overwrite yours after the call.
    /// @param pin  must not be null
    int (*set_pin)(OsslScardIf* self, const char* pin);

    /// 7: Logs in if the card needs a PIN, finds the private keys whose certificates pass the filter, and
    /// numbers them from 0. Earlier numbers and names become invalid, even if it fails. The order may differ
    /// from run to run. States: configuring.
    ///
    /// With libp11 0.4.12 and 0.4.13, it does not return if the card was removed after read_scard. Therefore
    /// call read_scard again after a PIN dialog; the PIN stays set.
    /// @param num_keys  receives the number of keys, possibly 0
    int (*discover_keys)(OsslScardIf* self, size_t* num_keys);

    /// 8: Returns a name for display. Two keys can have the same name.
    /// @param key_num  a number below num_keys of the last discover_keys
    /// @return valid until the next read_scard, discover_keys or destroy; null on failure
    const char* (*get_key_name)(OsslScardIf* self, size_t key_num);

    /// 9: Selects the first key of that type and identifier for the next ossl_load. Stores its type, its name
    /// and the name of its certificate in the configuration in use. States: configuring, after discover_keys.
    ///
    /// If the key does not exist, nothing changes. If its certificate is not found, type and name are stored.
    /// @param key_type  one of the key types above
    /// @param key_id    the identifier, which stays the same from run to run; must not be null. pkcs11: "%"
    ///                  and two lower-case hexadecimal digits for every byte of the object id, such as
    ///                  "%01%ab". capi: the name of the container. capi_store: the name from get_key_name
    int (*set_key_by_id)(OsslScardIf* self, unsigned int key_type, const char* key_id);

    /// 10: Selects a key by its number, otherwise like set_key_by_id. States: configuring, after
    /// discover_keys.
    /// @param key_num  a number below num_keys of the last discover_keys
    int (*set_key_by_number)(OsslScardIf* self, size_t key_num);

    /// 11: Completes the configuration: applies the environment again, which may override the selected key,
    /// and makes the next ossl_load load. States: initialized, configuring.
    int (*notify_config_done)(OsslScardIf* self);

    /// 12: Loads the selected private key and certificate. The first call also loads the OpenSSL engine of
    /// the back-end, which remains until destroy. States: configured.
    ///
    /// Does nothing and succeeds if it has already succeeded since the last notify_config_done, even after
    /// ossl_unload. With pkcs11, it passes the PIN to the engine even if none was set, and an empty PIN may
    /// cost one of the card's tries: call set_pin first if is_pin_required returns true.
    int (*ossl_load)(OsslScardIf* self);

    /// 13: Frees the key and the certificate. Free every TLS object that uses the key first. To load again,
    /// start at read_scard. States: configured.
    int (*ossl_unload)(OsslScardIf* self);

    /// 14: Returns the loaded private key, for example for SSL_CTX_use_PrivateKey.
    /// @param pkey  receives the key, or null if none is loaded. The library keeps the ownership and adds no
    ///              reference: the key is valid until ossl_unload, the next ossl_load that loads, or destroy.
    ///              Free everything made from it before destroy.
    int (*ossl_get_private_key)(OsslScardIf* self, struct evp_pkey_st** pkey);

    /// 15: Returns the loaded certificate.
    /// @param cert  receives the certificate, or null if none is loaded; otherwise like pkey above
    int (*ossl_get_certificate)(OsslScardIf* self, struct x509_st** cert);

    /// 16: The destructor. Not for clients: call destroy.
    void* (*destructor)(OsslScardIf* self, unsigned int flags);

    /// 17: Returns the version of the library, such as "4.3.0". May throw.
    /// @return never null; valid until destroy
    const char* (*get_version)(OsslScardIf* self);

    /// 18: Destroys the object and everything that it returned, except clones of configurations. Free every
    /// TLS object that uses the key first. The next get_ossl_scard_if creates a new object.
    void (*destroy)(OsslScardIf* self);

    /// 19: Returns the message of the last function: empty if it succeeded. It may have several lines.
    /// @return never null; valid until the next function of this object other than get_last_error_msg
    const char* (*get_last_error_msg)(OsslScardIf* self);

    /// 20: Shows a menu of the keys that discover_keys found on standard output and reads the user's choice
    /// from standard input, one key at a time and without echo. Selects no key: pass the number to
    /// set_key_by_number.
    /// @param key_num  receives the number; unchanged on failure, including a user abort
    int (*select_key_from_console)(OsslScardIf* self, size_t* key_num);
};

/// The functions of OsslScardCfg. Each getter has the index after its setter.
///
/// Setters accept every value; the library reports a wrong value where it uses it. A text setter stores a
/// null pointer as "". The object owns the text that a getter returns; it is valid until that setting changes
/// or the object is destroyed.
///
/// The environment variable "ossl_scard_cfg_" + key overrides a setting. The key is the setting's name,
/// unless another key is noted.
struct OsslScardCfgTable {
    /// 0: Destroys an object that clone returned. Call it with 1, while the library is still loaded; without
    /// bit 0, the memory is not freed. Never call it for an object of get_config_default or get_config_used.
    void* (*destructor)(OsslScardCfg* self, unsigned int flags);

    /// 1: Copies all settings into a new, independent object. The caller owns it and destroys it with
    /// clone->table->destructor(clone, 1). It may outlive destroy. Null if memory has run out.
    OsslScardCfg* (*clone)(const OsslScardCfg* self);

    /// 2: Sets the back-end, before init. Default: ossl_scard_capi. Receives an address: a reference in C++.
    /// @param value  the address of one of the back-ends above; must not be null
    void (*set_crypto_if)(OsslScardCfg* self, const unsigned int* value);
    /// 3: @return the address of the back-end; never null, valid until the object is destroyed
    const unsigned int* (*get_crypto_if)(const OsslScardCfg* self);

    /// 4: Path of OpenSSL's CryptoAPI engine, for capi. Default: ".\capi.dll".
    void (*set_capi_openssl_engine_dll)(OsslScardCfg* self, const char* value);
    const char* (*get_capi_openssl_engine_dll)(const OsslScardCfg* self); ///< 5

    /// 6: Name of the CryptoAPI provider, for capi. Default: "Microsoft Base Smart Card Crypto Provider".
    void (*set_capi_csp_name)(OsslScardCfg* self, const char* value);
    const char* (*get_capi_csp_name)(const OsslScardCfg* self); ///< 7

    /// 8: Key type, for capi. Default: ossl_scard_key_signature. The selection of a key sets it.
    void (*set_capi_key_type)(OsslScardCfg* self, unsigned int value);
    unsigned int (*get_capi_key_type)(const OsslScardCfg* self); ///< 9

    /// 10: Path of libp11's OpenSSL engine, for pkcs11. Default: ".\pkcs11.dll".
    void (*set_pkcs11_openssl_engine_dll)(OsslScardCfg* self, const char* value);
    const char* (*get_pkcs11_openssl_engine_dll)(const OsslScardCfg* self); ///< 11

    /// 12: Path or name of the card vendor's PKCS#11 module, for pkcs11. Default: "itp11.dll".
    void (*set_pkcs11_module_dll)(OsslScardCfg* self, const char* value);
    const char* (*get_pkcs11_module_dll)(const OsslScardCfg* self); ///< 13

    /// 14: Path of OpenSSL's CryptoAPI engine, for capi_store. Default: ".\capi.dll".
    void (*set_capi_store_openssl_engine_dll)(OsslScardCfg* self, const char* value);
    const char* (*get_capi_store_openssl_engine_dll)(const OsslScardCfg* self); ///< 15

    /// 16: Name of the Windows system store, for capi_store. Default: "MY".
    void (*set_capi_store_cert_store_name)(OsslScardCfg* self, const char* value);
    const char* (*get_capi_store_cert_store_name)(const OsslScardCfg* self); ///< 17

    /// 18: Name of the private key to load: a PKCS#11 URI (pkcs11), the name of a key container (capi), or a
    /// part of the certificate's subject (capi_store). Default: "". The selection of a key sets it.
    void (*set_priv_key_name)(OsslScardCfg* self, const char* value);
    const char* (*get_priv_key_name)(const OsslScardCfg* self); ///< 19

    /// 20: Name of the certificate to load, otherwise like the name of the private key.
    void (*set_cert_name)(OsslScardCfg* self, const char* value);
    const char* (*get_cert_name)(const OsslScardCfg* self); ///< 21

    /// 22: How discover_keys filters by key usage: one of the filter types above. Default:
    /// ossl_scard_filter_all. Key: "key_usage_filter_type".
    void (*set_kuse_filter_type)(OsslScardCfg* self, unsigned int value);
    unsigned int (*get_kuse_filter_type)(const OsslScardCfg* self); ///< 23

    /// 24: The required key usage: a sum of OpenSSL's KU_* values, such as 0x80 for digital signature.
    /// Default: 0. Key: "key_usage_filter".
    void (*set_kuse_filter)(OsslScardCfg* self, unsigned int value);
    unsigned int (*get_kuse_filter)(const OsslScardCfg* self); ///< 25

    /// 26: How discover_keys filters by extended key usage. Default: ossl_scard_filter_all. Key:
    /// "ext_key_usage_filter_type".
    void (*set_xkuse_filter_type)(OsslScardCfg* self, unsigned int value);
    unsigned int (*get_xkuse_filter_type)(const OsslScardCfg* self); ///< 27

    /// 28: The one required extended key usage, as a dotted object identifier: "1.3.6.1.5.5.7.3.2" is client
    /// authentication. Default: "". Key: "ext_key_usage_filter".
    void (*set_xkuse_nid_filter)(OsslScardCfg* self, const char* value);
    const char* (*get_xkuse_nid_filter)(const OsslScardCfg* self); ///< 29

    /// 30: Path of the log file. init opens it; "" or " " turns the log off. Default: "ossl_scard.log".
    void (*set_logfile)(OsslScardCfg* self, const char* value);
    const char* (*get_logfile)(const OsslScardCfg* self); ///< 31

    /// 32: The severities to log: a sum of those above. init applies it. Default: 60, info and higher.
    void (*set_logfile_severity)(OsslScardCfg* self, unsigned int value);
    unsigned int (*get_logfile_severity)(const OsslScardCfg* self); ///< 33

    /// 34, 35: Whether init appends to an existing log file or empties it. Default: it empties the file.
    void (*enable_logfile_append)(OsslScardCfg* self);
    void (*disable_logfile_append)(OsslScardCfg* self);   ///< 35
    bool (*get_logfile_append)(const OsslScardCfg* self); ///< 36

    /// 37: Describes a back-end in one line, with its provider or module. The text of an unknown value is
    /// empty. It is cut to size - 1 characters, and always zero-terminated.
    /// @param value   one of the back-ends above; the value itself, not an address
    /// @param buffer  the caller's, with room for size characters; must not be null
    /// @param size    the terminating zero included; if 0, nothing is written
    /// @return buffer
    char* (*get_crypto_if_description)(const OsslScardCfg* self, unsigned int value, char* buffer,
                                       size_t size);

    /// 38: Writes all settings, one per line, each ended by "\n". Otherwise like get_crypto_if_description.
    char* (*dump_settings)(const OsslScardCfg* self, char* buffer, size_t size);

    /// 39: Shows a menu of the back-ends on standard output and reads the user's choice from standard input,
    /// one key at a time and without echo. Changes no setting: pass the choice to set_crypto_if.
    /// @param selected  receives the choice; unchanged on failure; must not be null
    /// @return ossl_scard_success; or another status, also after a user abort. The log has the message.
    int (*select_crypto_if_from_console)(OsslScardCfg* self, unsigned int* selected);
};

/// The only function that the library exports. Returns the object of the process. The first call, and the
/// first call after destroy, creates it. May throw.
/// @return never null; owned by the library: destroy it with destroy
OsslScardIf* get_ossl_scard_if(void);

/// @cond
/* An array of a negative size is an error of the compiler: C99 has no other check at compile time. */
typedef char
    ossl_scard_check_if_has_21_functions[sizeof(OsslScardIfTable) == 21 * sizeof(void (*)(void)) ? 1 : -1];
typedef char
    ossl_scard_check_cfg_has_40_functions[sizeof(OsslScardCfgTable) == 40 * sizeof(void (*)(void)) ? 1 : -1];
typedef char ossl_scard_check_bool_has_1_byte[sizeof(bool) == 1 ? 1 : -1];
typedef char ossl_scard_check_unsigned_int_has_4_bytes[sizeof(unsigned int) == 4 ? 1 : -1];
/// @endcond

#ifdef __cplusplus
}
#endif

#endif /* KES_MARVO_OSSL_SCARD_C_H_ */
