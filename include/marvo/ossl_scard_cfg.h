#ifndef KES_MARVO_OSSL_SCARD_CFG_H_
#define KES_MARVO_OSSL_SCARD_CFG_H_

/// @file
/// The settings of the library for C++.
#include <stddef.h>

namespace Kes {

/// The settings of the library.
///
/// OsslScardIf::get_config_default() returns an object with the default values. Change what differs and pass
/// the object to OsslScardIf::init(), which makes a copy. Setters accept every value; the library reports a
/// wrong value where it uses it.
///
/// The environment overrides every setting. The variable is named "ossl_scard_cfg_" + key, and init() and
/// notify_config_done() both read it. The key is the name of the setting: the setter's name without "set_",
/// and "logfile_append" for the append mode. Only the four filter settings have other keys; they are noted
/// there.
///
/// Text: zero-terminated and stored unchanged. Setters copy their argument and store a null pointer as "".
/// The object owns the text that a getter returns; it is valid until that setting changes or the object is
/// destroyed.
///
/// Errors: no operation of the library's objects lets an exception escape. A text setter that cannot store
/// its value, because memory has run out, keeps the old value and logs an error.
///
/// Threads: use an object from one thread at a time.
///
/// A client may pass an object of its own class to init(). A text getter of such a class may return null,
/// which counts as "".
///
/// The order of the virtual operations is the binary contract between clients and library and never changes.
/// Compilers use either one or two table entries for a virtual destructor. Where a compiler would use two,
/// the class declares an ordinary operation in place of the one entry.
class OsslScardCfg {
public:
    /// Where the keys are stored. The library accepts and stores other values too and calls them "unknown".
    enum CryptoIf : unsigned int {
        capi = 1,      ///< key containers of a CryptoAPI provider (Windows only)
        pkcs11 = 2,    ///< a PKCS#11 token
        capi_store = 3 ///< a certificate store of the current Windows user (Windows only)
    };

#if defined(_MSC_VER)
    virtual ~OsslScardCfg() {}
#else
    /// The table entry of the destructor. Destroys the object, and frees its memory if bit 0 of flags is set.
    /// Clients call release() instead.
    /// @return the address of the object
    virtual void* destructor_entry(unsigned int flags) = 0;
#endif

    /// Copies all settings into a new, independent object.
    /// @return an object that the caller owns: destroy it with release() or delete, while the library is
    ///         still loaded. Null if memory has run out.
    virtual OsslScardCfg* clone() const = 0;

    /// The back-end that reads the keys. Set it before init(); later changes are not supported. Default:
    /// capi. The environment's value is "capi", "pkcs11" or "capi_store".
    ///
    /// The reference that the getter returns is valid until the object is destroyed.
    virtual void set_crypto_if(const CryptoIf& value) = 0;
    virtual const CryptoIf& get_crypto_if() const = 0;

    /// Path of OpenSSL's CryptoAPI engine, for capi. The first ossl_load() uses it. Default: ".\capi.dll",
    /// which Windows looks for in every folder of its DLL search path, from the program's folder to the
    /// current one.
    virtual void set_capi_openssl_engine_dll(const char* value) = 0;
    virtual const char* get_capi_openssl_engine_dll() const = 0;

    /// Name of the CryptoAPI provider, for capi. Default: "Microsoft Base Smart Card Crypto Provider".
    virtual void set_capi_csp_name(const char* value) = 0;
    virtual const char* get_capi_csp_name() const = 0;

    /// Key specification of CryptoAPI, for capi: 1 is AT_KEYEXCHANGE, 2 is AT_SIGNATURE. Default: 2.
    /// OsslScardIf::set_key() sets it.
    virtual void set_capi_key_type(unsigned int value) = 0;
    virtual unsigned int get_capi_key_type() const = 0;

    /// Path of libp11's OpenSSL engine, for pkcs11. The first ossl_load() uses it. Default: ".\pkcs11.dll",
    /// with the same search as for ".\capi.dll".
    virtual void set_pkcs11_openssl_engine_dll(const char* value) = 0;
    virtual const char* get_pkcs11_openssl_engine_dll() const = 0;

    /// Path or name of the card vendor's PKCS#11 module, for pkcs11. init() loads it, and the first
    /// ossl_load() passes it to the engine. Default: "itp11.dll".
    virtual void set_pkcs11_module_dll(const char* value) = 0;
    virtual const char* get_pkcs11_module_dll() const = 0;

    /// Path of OpenSSL's CryptoAPI engine, for capi_store. The first ossl_load() uses it. Default:
    /// ".\capi.dll".
    virtual void set_capi_store_openssl_engine_dll(const char* value) = 0;
    virtual const char* get_capi_store_openssl_engine_dll() const = 0;

    /// Name of the Windows system store, for capi_store. Default: "MY".
    virtual void set_capi_store_cert_store_name(const char* value) = 0;
    virtual const char* get_capi_store_cert_store_name() const = 0;

    /// Name of the private key to load. Default: "". OsslScardIf::set_key() sets it.
    ///
    /// The OpenSSL engine of the back-end defines the format: a PKCS#11 URI without percent-encoding of the
    /// token label (pkcs11), the name of a key container (capi), or a part of the certificate's subject
    /// (capi_store).
    virtual void set_priv_key_name(const char* value) = 0;
    virtual const char* get_priv_key_name() const = 0;

    /// Name of the certificate to load, in the format of the private key's name. Default: "".
    /// OsslScardIf::set_key() sets it.
    virtual void set_cert_name(const char* value) = 0;
    virtual const char* get_cert_name() const = 0;

    /// How discover_keys() filters certificates by key usage. Default: 0. Key: "key_usage_filter_type".
    /// - 0: every certificate passes
    /// - 1: a certificate passes if its key usage contains all bits of kuse_filter
    /// - 2: like 1, and a certificate without key usage passes too
    /// - other values: like 1
    virtual void set_kuse_filter_type(unsigned int value) = 0;
    virtual unsigned int get_kuse_filter_type() const = 0;

    /// The required key usage bits: a sum of OpenSSL's KU_* values, such as 0x80 for digital signature.
    /// Default: 0. With filter type 1 or 2, a value of 0 rejects every certificate that has a key usage.
    /// Key: "key_usage_filter".
    virtual void set_kuse_filter(unsigned int value) = 0;
    virtual unsigned int get_kuse_filter() const = 0;

    /// How discover_keys() filters certificates by extended key usage; values like those of kuse_filter_type.
    /// Default: 0. Key: "ext_key_usage_filter_type".
    virtual void set_xkuse_filter_type(unsigned int value) = 0;
    virtual unsigned int get_xkuse_filter_type() const = 0;

    /// The one required extended key usage, as a dotted object identifier: "1.3.6.1.5.5.7.3.2" is client
    /// authentication. Default: "". Key: "ext_key_usage_filter".
    virtual void set_xkuse_nid_filter(const char* value) = 0;
    virtual const char* get_xkuse_nid_filter() const = 0;

    /// Path of the log file. init() opens it; "" or " " turns the log off. From the environment only " " does
    /// that, because an empty variable counts as unset. Default: "ossl_scard.log".
    virtual void set_logfile(const char* value) = 0;
    virtual const char* get_logfile() const = 0;

    /// The severities to log: a sum of trace 1, debug 2, info 4, warn 8, error 16 and fatal 32. init()
    /// applies it. Default: 60.
    virtual void set_logfile_severity(unsigned int value) = 0;
    virtual unsigned int get_logfile_severity() const = 0;

    /// Whether init() appends to an existing log file or empties it. Default: false. In the environment, 0 is
    /// false, and every other number is true.
    virtual void enable_logfile_append() = 0;
    virtual void disable_logfile_append() = 0;
    virtual bool get_logfile_append() const = 0;

    /// Describes a back-end in one line for display, with its provider or module in this object. The text of
    /// an unknown value is empty.
    ///
    /// The text is cut to size - 1 characters. If memory runs out, it is cut to the part that was complete by
    /// then, possibly none. It is always zero-terminated.
    /// @param value   the back-end to describe
    /// @param buffer  the caller's, with room for size characters; must not be null
    /// @param size    in characters, the terminating zero included; if 0, nothing is written
    /// @return buffer
    virtual char* get_crypto_if_description(CryptoIf value, char* buffer, size_t size) const = 0;

    /// Writes all settings, one per line, for display and logs. Each line ends with "\n".
    ///
    /// Text length, arguments and return value are those of get_crypto_if_description().
    virtual char* dump_settings(char* buffer, size_t size) const = 0;

    /// Shows a menu of the back-ends on standard output and reads the user's choice from standard input, one
    /// key at a time and without echo. Waits until the user chooses or aborts. Changes no setting: pass the
    /// choice to set_crypto_if().
    /// @param selected  receives the choice; unchanged on failure; must not be null
    /// @return 0 on success; 1 on failure, including a user abort; 255 on an exception of unknown type. The
    ///         log contains the message.
    virtual int select_crypto_if_from_console(CryptoIf* selected) = 0;

#if defined(_MSC_VER)
    /// Destroys an object that clone() returned. Same as delete.
    void release() { delete this; }
#else
    /// Destroys an object that clone() returned. Same as delete, but without a compiler warning.
    void release() { destructor_entry(1); }

    /// Makes "delete clone" call destructor_entry(), so that the library frees the memory that it allocated.
    /// GCC and Clang may warn that the destructor is not virtual; destructor_entry() takes its place. Use
    /// delete only for objects that the library's clone() returned. Destroy an object of a client's own class
    /// with release().
    ///
    /// Not inlined: the compiler assumes that the object no longer exists here, and could optimise away the
    /// accesses to it.
    __attribute__((noinline)) static void operator delete(void* object) {
        if (object != nullptr) static_cast<OsslScardCfg*>(object)->release();
    }
#endif
};

} // namespace Kes

#endif // KES_MARVO_OSSL_SCARD_CFG_H_
