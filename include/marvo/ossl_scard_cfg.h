#ifndef KES_MARVO_OSSL_SCARD_CFG_H_
#define KES_MARVO_OSSL_SCARD_CFG_H_

#include <stddef.h>

namespace Kes {

/// The settings of the library.
///
/// Get one with OsslScardIf::get_config_default(), change what differs, and hand it to OsslScardIf::init(),
/// which keeps a copy of its own. No setter checks its value; a wrong value is reported where it is used.
/// Every setting can be overridden from the environment by a variable "ossl_scard_cfg_" + key, which is read
/// in init() and again in notify_config_done().
///
/// Texts are zero-terminated and taken as they are. A null pointer given to a setter is stored as "". The
/// text a getter returns belongs to this object and is valid until that setting is changed or the object
/// ends.
///
/// Use from one thread at a time.
///
/// The order of the virtual operations is the contract between clients and library: it never changes.
/// Compilers differ in how they lay out a virtual destructor (one entry or two), so the destructor's one
/// entry is written out as an ordinary operation wherever the compiler would make two of it.
class OsslScardCfg {
public:
    /// Where the keys live. Any other value is stored as it is and named "unknown".
    enum CryptoIf : unsigned int {
        capi = 1,      ///< key containers of a CryptoAPI provider (Windows only)
        pkcs11 = 2,    ///< a PKCS#11 token
        capi_store = 3 ///< a certificate store of the current Windows user (Windows only)
    };

#if defined(_MSC_VER)
    virtual ~OsslScardCfg() {}
#else
    /// The destructor's entry: ends the object, and frees its memory when bit 0 of flags is set.
    /// Call release() instead.
    virtual void* destructor_entry(unsigned int flags) = 0;
#endif

    /// Makes an independent copy of all settings.
    /// @return a new object that the caller owns: end it with release() or delete
    virtual OsslScardCfg* clone() const = 0;

    /// The back-end in use. Default: capi.
    virtual void set_crypto_if(const CryptoIf& value) = 0;
    virtual const CryptoIf& get_crypto_if() const = 0;

    /// Path of OpenSSL's CryptoAPI engine for capi. Default: ".\capi.dll", which Windows tries in each folder
    /// of its search for DLLs: the program's, ..., the current one.
    virtual void set_capi_openssl_engine_dll(const char* value) = 0;
    virtual const char* get_capi_openssl_engine_dll() const = 0;

    /// Name of the CryptoAPI provider for capi. Default: "Microsoft Base Smart Card Crypto Provider".
    virtual void set_capi_csp_name(const char* value) = 0;
    virtual const char* get_capi_csp_name() const = 0;

    /// CryptoAPI key specification: 1 is KEYEXCHANGE, 2 is SIGNATURE. Default: 2. Set by
    /// OsslScardIf::set_key().
    virtual void set_capi_key_type(unsigned int value) = 0;
    virtual unsigned int get_capi_key_type() const = 0;

    /// Path of libp11's OpenSSL engine for pkcs11. Default: ".\pkcs11.dll", searched as ".\capi.dll" is.
    virtual void set_pkcs11_openssl_engine_dll(const char* value) = 0;
    virtual const char* get_pkcs11_openssl_engine_dll() const = 0;

    /// Path or name of the PKCS#11 module of the card's maker. Default: "itp11.dll".
    virtual void set_pkcs11_module_dll(const char* value) = 0;
    virtual const char* get_pkcs11_module_dll() const = 0;

    /// Path of OpenSSL's CryptoAPI engine for capi_store. Default: ".\capi.dll".
    virtual void set_capi_store_openssl_engine_dll(const char* value) = 0;
    virtual const char* get_capi_store_openssl_engine_dll() const = 0;

    /// Name of the Windows system store for capi_store. Default: "MY".
    virtual void set_capi_store_cert_store_name(const char* value) = 0;
    virtual const char* get_capi_store_cert_store_name() const = 0;

    /// Name of the private key to load, as the back-end's engine understands it. Default: "".
    /// Set by OsslScardIf::set_key().
    virtual void set_priv_key_name(const char* value) = 0;
    virtual const char* get_priv_key_name() const = 0;

    /// Name of the certificate to load. Default: "". Set by OsslScardIf::set_key().
    virtual void set_cert_name(const char* value) = 0;
    virtual const char* get_cert_name() const = 0;

    /// How the key usage of a certificate is judged during discovery. Default: 0.
    /// 0: not at all; 1: it must contain all bits of kuse_filter; 2: as 1, but a certificate without key
    /// usage passes too.
    virtual void set_kuse_filter_type(unsigned int value) = 0;
    virtual unsigned int get_kuse_filter_type() const = 0;

    /// Required key usage bits, values as OpenSSL's KU_*: 0x80 is digital signature. Default: 0.
    /// With filter type 1 or 2 a value of 0 rejects every certificate that has a key usage.
    virtual void set_kuse_filter(unsigned int value) = 0;
    virtual unsigned int get_kuse_filter() const = 0;

    /// How the extended key usage is judged; values as for the key usage. Default: 0.
    virtual void set_xkuse_filter_type(unsigned int value) = 0;
    virtual unsigned int get_xkuse_filter_type() const = 0;

    /// The one extended key usage that is required, as a dotted object identifier: "1.3.6.1.5.5.7.3.2" is
    /// client authentication. Default: "".
    virtual void set_xkuse_nid_filter(const char* value) = 0;
    virtual const char* get_xkuse_nid_filter() const = 0;

    /// Name of the log file; "" or " " turns logging off. Default: "ossl_scard.log".
    virtual void set_logfile(const char* value) = 0;
    virtual const char* get_logfile() const = 0;

    /// Which lines are written, as a sum of trace 1, debug 2, info 4, warn 8, error 16, fatal 32.
    /// Default: 60.
    virtual void set_logfile_severity(unsigned int value) = 0;
    virtual unsigned int get_logfile_severity() const = 0;

    /// Whether init() appends to an existing log file instead of emptying it. Default: no.
    virtual void enable_logfile_append() = 0;
    virtual void disable_logfile_append() = 0;
    virtual bool get_logfile_append() const = 0;

    /// Writes a line for people about a back-end, with the provider or module now configured; empty for an
    /// unknown value. The text is cut to size - 1 characters and always zero-terminated.
    /// @param buffer  at least size characters, owned by the caller; must not be null
    /// @param size    at least 1; with 0 nothing is written
    /// @return buffer
    virtual char* get_crypto_if_description(CryptoIf value, char* buffer, size_t size) const = 0;

    /// Writes all settings, one a line, each line ended by "\n". Cut, termination and arguments as above.
    virtual char* dump_settings(char* buffer, size_t size) const = 0;

    /// Asks the user on the console which back-end to use. Reads one key at a time, without echo.
    /// Changes no setting: hand the answer to set_crypto_if().
    /// @param selected  receives the choice; written only on success, must not be null
    /// @return 0 on success; 1 on failure, a user abort included; 255 on an unknown exception. The log has
    /// the text.
    virtual int select_crypto_if_from_console(CryptoIf* selected) = 0;

#if defined(_MSC_VER)
    /// Ends an object that clone() made. Does what delete does.
    void release() { delete this; }
#else
    /// Ends an object that clone() made, as delete does, without a compiler warning.
    void release() { destructor_entry(1); }

    /// Makes "delete clone" go through the destructor's entry, so that the library frees what it allocated.
    /// GCC and Clang may warn that the destructor is not virtual; the entry above is what makes it so. Only
    /// for what the library's clone() returned: an object of the client's own class ends by release().
    ///
    /// Out of line, because the compiler takes the object for ended when this begins, and would reason from
    /// that about what is read here.
    __attribute__((noinline)) static void operator delete(void* object) {
        if (object != nullptr) static_cast<OsslScardCfg*>(object)->release();
    }
#endif
};

} // namespace Kes

#endif // KES_MARVO_OSSL_SCARD_CFG_H_
