#include "system_store.h"

#include <memory>
#include <stdexcept>
#include <utility>

namespace Kes::test {
namespace {

constexpr DWORD provider_type_of_card = PROV_RSA_FULL;
constexpr DWORD provider_type_of_software = PROV_RSA_AES;
constexpr std::size_t algorithm_offset = 4; // of aiKeyAlg in BLOBHEADER

void require(bool is_good, const std::string& what) {
    if (is_good) return;
    const DWORD error = ::GetLastError();
    throw std::runtime_error(what + ": Windows error " + std::to_string(error));
}

struct CloseStore {
    void operator()(void* store) const { ::CertCloseStore(store, 0); }
};
using StorePtr = std::unique_ptr<void, CloseStore>;

struct FreeContext {
    void operator()(const CERT_CONTEXT* context) const { ::CertFreeCertificateContext(context); }
};
using ContextPtr = std::unique_ptr<const CERT_CONTEXT, FreeContext>;

StorePtr open(const std::string& name) {
    StorePtr store(
        ::CertOpenStore(CERT_STORE_PROV_SYSTEM_A, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, name.c_str()));
    require(store != nullptr, "cannot open the store " + name);
    return store;
}

void commit(const StorePtr& store) {
    require(::CertControlStore(store.get(), 0, CERT_STORE_CTRL_COMMIT, nullptr) != 0,
            "cannot commit the store");
}

std::wstring wide(const std::string& text) { return {text.begin(), text.end()}; }

void set_key(const CERT_CONTEXT* context, const KeyPlace& key) {
    std::wstring container = wide(key.container);
    std::wstring provider = wide(key.provider);
    CRYPT_KEY_PROV_INFO info{};
    info.pwszContainerName = container.data();
    info.pwszProvName = provider.data();
    info.dwProvType = key.provider_type;
    info.dwKeySpec = key.key_spec;
    require(::CertSetCertificateContextProperty(context, CERT_KEY_PROV_INFO_PROP_ID, 0, &info) != 0,
            "cannot set the location of the key");
}

} // namespace

KeyPlace on_card(const std::string& container, DWORD key_spec) {
    return {card_provider, provider_type_of_card, container, key_spec};
}

KeyPlace in_software(const std::string& container, DWORD key_spec) {
    return {software_provider, provider_type_of_software, container, key_spec};
}

SystemStore::SystemStore(std::string name, Start start) : name_(std::move(name)) {
    if (::GetProcAddress(::GetModuleHandleA("ntdll.dll"), "wine_get_version") == nullptr)
        throw std::runtime_error("certificate stores are changed only under Wine");
    if (start == empty) remove();
    open(name_);
}

void SystemStore::add(const std::vector<Bytes>& ders, const KeyPlace* key) {
    const StorePtr store = open(name_);
    for (const Bytes& der : ders) {
        const ContextPtr context(
            ::CertCreateCertificateContext(X509_ASN_ENCODING, der.data(), static_cast<DWORD>(der.size())));
        require(context != nullptr, "not a certificate");
        if (key != nullptr) set_key(context.get(), *key);
        require(::CertAddCertificateContextToStore(store.get(), context.get(), CERT_STORE_ADD_NEW, nullptr) !=
                    0,
                "cannot add to the store " + name_);
    }
    commit(store);
}

void SystemStore::remove() {
    const std::string key = "Software\\Microsoft\\SystemCertificates\\" + name_;
    const LSTATUS status = ::RegDeleteTreeA(HKEY_CURRENT_USER, key.c_str());
    ::SetLastError(static_cast<DWORD>(status));
    require(status == ERROR_SUCCESS || status == ERROR_FILE_NOT_FOUND, "cannot delete the store " + name_);
}

void import_software_key(const std::string& container, DWORD key_spec, Bytes blob) {
    if (key_spec == AT_SIGNATURE) { // the openssl program writes all blobs as key exchange keys
        blob.at(algorithm_offset) = 0x00;
        blob.at(algorithm_offset + 1) = 0x24; // CALG_RSA_SIGN
    }
    delete_software_key(container);
    HCRYPTPROV provider = 0;
    HCRYPTKEY key = 0;
    require(::CryptAcquireContextA(&provider, container.c_str(), software_provider, provider_type_of_software,
                                   CRYPT_NEWKEYSET) != 0,
            "cannot make the container " + container);
    const bool is_imported =
        ::CryptImportKey(provider, blob.data(), static_cast<DWORD>(blob.size()), 0, 0, &key) != 0;
    const DWORD error = ::GetLastError();
    if (is_imported) ::CryptDestroyKey(key);
    ::CryptReleaseContext(provider, 0);
    ::SetLastError(error);
    require(is_imported, "cannot import the key into " + container);
}

void delete_software_key(const std::string& container) {
    HCRYPTPROV none = 0; // there is nothing to release, nor to complain of when it was not there
    ::CryptAcquireContextA(&none, container.c_str(), software_provider, provider_type_of_software,
                           CRYPT_DELETEKEYSET);
}

} // namespace Kes::test
