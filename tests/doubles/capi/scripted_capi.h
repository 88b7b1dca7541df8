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

/// CryptoAPI that does what it is told: this library's sources define the functions that ours call, over
/// providers, containers and stores that a test writes down. Calls, failures and wrong uses go to the
/// CallScript; a failure's rc is the last error that the call leaves behind.
///
/// Every other call leaves a last error of no meaning, so that nobody reads it too late. Handles have names
/// in the record: "prov" for a provider alone, "prov:c1" for its container c1, "key:c1/2" for the key of
/// key type 2 in there, "store:MY", and "cert:MY/0" for the certificate at a store's position 0.
namespace Kes::test {

struct ScriptedUserKey {
    std::optional<Bytes> certificate = {}; ///< without: there is none on the card
    EVP_PKEY* public_key = nullptr;        ///< lent
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
    bool ends_names = true;           ///< by a NUL, as most do
    bool reports_end_on_read = false; ///< that no container is left, only when asked for more than the size
};

/// What a function says that gives bytes by a buffer, where that is not what the objects would have it say.
struct OddAnswer {
    std::optional<DWORD> size = {};     ///< to the question for the size
    std::optional<Bytes> data = {};     ///< as much is written
    std::optional<DWORD> reported = {}; ///< as the number of bytes that were written
};

struct ScriptedStore {
    std::string name;
    std::vector<Bytes> certs;
    std::vector<std::size_t> deleted = {}; ///< positions that are not in the store any more
};

class ScriptedCapi {
public:
    static ScriptedCapi& instance();

    /// Back to no provider and no store; handles that were not released are forgotten.
    void reset();

    std::vector<ScriptedProvider> providers; ///< the first is the system's default
    std::vector<ScriptedStore> stores;
    std::map<std::string, OddAnswer> odd_answers; ///< by function, and parameter: "CryptGetProvParam 39"
    std::map<std::string, DWORD> errors;          ///< the same, and "CryptAcquireContextA c1" by container
    std::optional<ULONG_PTR> junk_handle;         ///< what failing calls leave where a handle would be
    std::optional<std::string> odd_name;          ///< what CertNameToStrA() writes, as far as it fits

    std::size_t unreleased_handles() const;

    struct Provider;
    struct Key;
    struct Store;
    struct Certificate;

    // The functions below are what those of Windows ask.

    /// Notes the call. @return whether it is to succeed; if not, the last error is set
    bool enter(const std::string& function, const std::string& arguments, const std::string& what = "");
    void note(const std::string& call);
    bool fail(DWORD error);
    bool fail(HRESULT error) { return fail(static_cast<DWORD>(error)); }
    DWORD last_error();

    /// As Windows gives bytes: a null buffer asks for the size, one that is too small is an error.
    bool give(const std::string& what, const Bytes& usual, void* buffer, DWORD* size);

    /// "cert:MY/0 subject", for a name that lies in a certificate of here; "?" for another.
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
    ScriptedContainer* container; ///< null: the provider alone
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

/// A name of a certificate as Windows writes it in the code page 1252: "C=AT, CN=\"a, b\"" as
/// CERT_X500_NAME_STR, "AT, \"a, b\"" as CERT_SIMPLE_NAME_STR. Made from the DER encoding.
std::string windows_name_text(const Bytes& name, DWORD string_type);

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_CAPI_SCRIPTED_CAPI_H_
