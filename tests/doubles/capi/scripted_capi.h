#ifndef KES_TESTS_DOUBLES_CAPI_SCRIPTED_CAPI_H_
#define KES_TESTS_DOUBLES_CAPI_SCRIPTED_CAPI_H_

#include <cstddef>
#include <map>
#include <memory>
#include <openssl/types.h>
#include <optional>
#include <string>
#include <vector>

#include "doubles/call_script.h"
#include "support/types.h"
#include "utils/windows_api.h"

/// A test double of CryptoAPI. The sources define the functions that the library calls; tests define
/// providers, containers and stores. Calls, planned failures and violations go to the CallScript. The rc of a
/// planned failure is the call's last error.
///
/// A successful call sets a meaningless last error, so that tests detect code that reads it too late. Handles
/// are recorded by name: "prov" for a provider without a container, "prov:c1" for its container c1,
/// "key:c1/2" for the key of key type 2 in it, "store:MY", and "cert:MY/0" for the certificate at position 0
/// of a store.
namespace Kes::test {

struct ScriptedUserKey {
    std::optional<Bytes> certificate = {}; ///< without a value, the card has no certificate
    EVP_PKEY* public_key = nullptr;        ///< borrowed
};

struct ScriptedContainer {
    std::string name;
    std::map<DWORD, ScriptedUserKey> keys; ///< by key specification
};

struct ScriptedProvider {
    std::string name = "Test CSP";
    DWORD key_specs = AT_KEYEXCHANGE | AT_SIGNATURE;
    std::string default_container = "default";
    std::vector<ScriptedContainer> containers;
    bool ends_names = true;           ///< with a NUL, as most providers do
    bool reports_end_on_read = false; ///< report the last container only when a name is read, not its size
};

/// Overrides the result of a function that fills a buffer.
struct OddAnswer {
    std::optional<DWORD> size = {};     ///< the size returned for a null buffer
    std::optional<Bytes> data = {};     ///< the bytes written to the buffer
    std::optional<DWORD> reported = {}; ///< the size returned after writing
};

struct ScriptedStore {
    std::string name;
    std::vector<Bytes> certs;
    std::vector<std::size_t> deleted = {}; ///< positions of certificates that were deleted from the store
};

class ScriptedCapi {
public:
    static ScriptedCapi& instance();

    /// Restores the initial state, without providers, stores and handles.
    void reset();

    std::vector<ScriptedProvider> providers; ///< the first is the system's default
    std::vector<ScriptedStore> stores;
    std::map<std::string, OddAnswer> odd_answers; ///< by function and parameter: "CryptGetProvParam 39"
    std::map<std::string, DWORD> errors;          ///< the same, or by container: "CryptAcquireContextA c1"
    std::optional<ULONG_PTR> junk_handle;         ///< written in place of a handle by failing calls
    std::optional<std::string> odd_name;          ///< written by CertNameToStrA(), as far as it fits

    std::size_t unreleased_handles() const;

    struct Provider;
    struct Key;
    struct Store;
    struct Certificate;

    // The functions below are for the functions of CryptoAPI.

    /// Records the call. @return whether it is to succeed; if not, the last error is set
    bool enter(const std::string& function, const std::string& arguments, const std::string& what = "");
    void note(const std::string& call);
    bool fail(DWORD error);
    bool fail(HRESULT error) { return fail(static_cast<DWORD>(error)); }
    DWORD last_error();

    /// Returns bytes as Windows does: only the size for a null buffer, an error if the buffer is too small.
    bool give(const std::string& what, const Bytes& usual, void* buffer, DWORD* size);

    /// "cert:MY/0 subject" for a name in one of the certificates; "?" for another name.
    std::string name_label(const CERT_NAME_BLOB* name) const;

    Provider* find_provider(HCRYPTPROV handle, const char* caller);
    Key* find_key(HCRYPTKEY handle, const char* caller);
    Store* find_store(HCERTSTORE handle, const char* caller);
    Certificate* find_certificate(const CERT_CONTEXT* context, const char* caller);

    HCRYPTPROV add(Provider provider);
    HCRYPTKEY add(Key key);
    HCERTSTORE add(Store store);
    const CERT_CONTEXT* add_certificate(HCERTSTORE store, std::size_t position);
    void end_provider(HCRYPTPROV handle);
    void end_key(HCRYPTKEY handle);
    void end_store(HCERTSTORE handle);
    void end_certificate(const CERT_CONTEXT* context);

private:
    ScriptedCapi();
    ~ScriptedCapi();

    std::map<HCRYPTPROV, Provider> open_providers_;
    std::map<HCRYPTKEY, Key> open_keys_;
    std::map<HCERTSTORE, std::unique_ptr<Store>> open_stores_;
    std::map<const CERT_CONTEXT*, std::unique_ptr<Certificate>> open_certs_;
    ULONG_PTR handles_made_ = 0;
    DWORD last_error_ = 0;
};

struct ScriptedCapi::Provider {
    std::string label; ///< in the record
    ScriptedProvider* script;
    ScriptedContainer* container; ///< null if the context has no container
    std::size_t next_name = 0;
};

struct ScriptedCapi::Key {
    std::string label;
    HCRYPTPROV provider;
    ScriptedUserKey* script;
};

struct ScriptedCapi::Store {
    std::string label;
    ScriptedStore* script;
};

struct ScriptedCapi::Certificate {
    std::string label;
    HCERTSTORE store;
    std::size_t position;
    Bytes der;
    Bytes issuer;
    Bytes subject;
    CERT_INFO info;
    CERT_CONTEXT context;
    int references = 1;
};

/// The text that Windows makes of a DER-encoded name, in code page 1252: "C=AT, CN=\"a, b\"" for
/// CERT_X500_NAME_STR, "AT, \"a, b\"" for CERT_SIMPLE_NAME_STR.
std::string windows_name_text(const Bytes& name, DWORD string_type);

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_CAPI_SCRIPTED_CAPI_H_
