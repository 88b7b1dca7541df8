#ifndef KES_CAPI_CAPI_HELPER_H_
#define KES_CAPI_CAPI_HELPER_H_

#include <cstdint>
#include <string>
#include <vector>

#include "utils/unique_handle.h"
#include "utils/windows_api.h"

namespace Kes {

/// The first thing to do with a CryptoAPI provider: a context on one of its key containers, or on the
/// provider alone. Owns the context, and the key that was fetched last.
class CapiInit {
public:
    /// @param provider   null: the system's default provider for PROV_RSA_FULL
    /// @param container  null: none; with flags 0 the context is then for the provider alone
    ///                   (CRYPT_VERIFYCONTEXT)
    /// @throws WinError
    CapiInit(const char* provider, const char* container, std::uint32_t flags);
    ~CapiInit();
    CapiInit(const CapiInit&) = delete;
    CapiInit& operator=(const CapiInit&) = delete;

    /// Gets the container's key of that type, and lets go of the one before. @throws WinError
    void fetch_key(std::uint32_t key_type_in);

    /// As fetch_key(). @return false when there is no such key, or none to be had, which is a warning
    bool try_fetch_key(std::uint32_t key_type_in);

    /// Lent; valid as long as this object, the key until the next fetch.
    HCRYPTPROV provider() const noexcept { return hprov.get(); }
    HCRYPTKEY key() const noexcept { return hkey.get(); }

private:
    struct ProvTraits {
        using Raw = HCRYPTPROV;
        static void close(Raw handle) noexcept;
    };
    struct KeyTraits {
        using Raw = HCRYPTKEY;
        static void close(Raw handle) noexcept;
    };

    UniqueHandle<ProvTraits> hprov;
    UniqueHandle<KeyTraits> hkey; // behind the provider, which must outlive it
    std::string prov_name;
    std::string key_container;
    std::uint32_t key_type;
};

/// How a provider is asked for a parameter, and where failures are reported.
struct CapiProvParam {
    using Handle = HCRYPTPROV;
    static bool get(Handle handle, DWORD param, BYTE* data, DWORD* length, DWORD flags) noexcept {
        return ::CryptGetProvParam(handle, param, data, length, flags) != 0;
    }
    static constexpr const char* function = "CryptGetProvParam";
    static constexpr const char* reader = "CapiProvParamReader";
    static constexpr bool is_enumerable = true; ///< ERROR_NO_MORE_ITEMS is an end, not a failure
    static constexpr const char* unsupported_location =
        "capi_helper:244 Kes::CapiProvParamReader::read_len()";
    static constexpr const char* length_location = "capi_helper:252 Kes::CapiProvParamReader::read_len()";
    static constexpr const char* data_location = "capi_helper:289 Kes::CapiProvParamReader::read()";
};

/// The same for a key.
struct CapiKeyParam {
    using Handle = HCRYPTKEY;
    static bool get(Handle handle, DWORD param, BYTE* data, DWORD* length, DWORD flags) noexcept {
        return ::CryptGetKeyParam(handle, param, data, length, flags) != 0;
    }
    static constexpr const char* function = "CryptGetKeyParam";
    static constexpr const char* reader = "CapiKeyParamReader";
    static constexpr bool is_enumerable = false;
    static constexpr const char* unsupported_location = "capi_helper:423 Kes::CapiKeyParamReader::read_len()";
    static constexpr const char* length_location = "capi_helper:426 Kes::CapiKeyParamReader::read_len()";
    static constexpr const char* data_location = "capi_helper:459 Kes::CapiKeyParamReader::read()";
};

/// Reads one parameter of a provider or a key into memory of its own.
template <typename Traits>
class CapiParamReader {
public:
    /// @param handle_in  lent; must live as long as this object
    /// @throws Error unsupported when the provider does not know the parameter, WinError
    CapiParamReader(typename Traits::Handle handle_in, std::uint32_t param_in, std::uint32_t flags_in);
    ~CapiParamReader();
    CapiParamReader(const CapiParamReader&) = delete;
    CapiParamReader& operator=(const CapiParamReader&) = delete;

    /// What was read; empty when there was nothing to read, such as at the end of an enumeration.
    const std::vector<unsigned char>& data() const noexcept { return data_; }

    /// What was read as a text, up to a NUL if there is one: some providers leave it out.
    std::string text() const;

private:
    DWORD read_len() const;
    void read();
    std::string failure_message() const;

    const typename Traits::Handle handle;
    const std::uint32_t param;
    const std::uint32_t flags;
    std::vector<unsigned char> data_;
};

using CapiProvParamReader = CapiParamReader<CapiProvParam>;
using CapiKeyParamReader = CapiParamReader<CapiKeyParam>;

/// The names of all containers of the provider, in its order.
std::vector<std::string> read_capi_containers(HCRYPTPROV provider);

/// The key specifications that the provider's containers may have, in ascending order, each a single bit.
struct CapiKeySpecs {
    std::uint32_t mask;
    std::vector<std::uint32_t> list;
};

/// Without an answer of the provider that makes sense: key exchange and signature.
CapiKeySpecs read_capi_key_specs(HCRYPTPROV provider);

/// The DER encoding of the certificate that is stored with the key; empty when there is none.
std::vector<unsigned char> read_capi_key_certificate(HCRYPTKEY key);

/// The public key of the container's key pair, as the DER encoding of a SubjectPublicKeyInfo (RFC 5280, 4.1).
class CapiPubKey {
public:
    /// @throws WinError
    CapiPubKey(HCRYPTPROV provider, std::uint32_t key_spec);

    const std::vector<unsigned char>& der() const noexcept { return der_; }

private:
    std::vector<unsigned char> der_;
};

} // namespace Kes

#endif // KES_CAPI_CAPI_HELPER_H_
