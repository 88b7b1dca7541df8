#ifndef KES_CAPI_CAPI_HELPER_H_
#define KES_CAPI_CAPI_HELPER_H_

#include <cstdint>
#include <string>
#include <vector>

#include "utils/unique_handle.h"
#include "utils/windows_api.h"

namespace Kes {

/// A context of a CryptoAPI provider, which every other call needs: for one of its key containers, or for the
/// provider without a container. Owns the context and the key that was fetched last.
class CapiInit {
public:
    /// Opens the context.
    /// @param provider   null means the system's default provider for PROV_RSA_FULL
    /// @param container  null means no container if flags is 0 (CRYPT_VERIFYCONTEXT), and otherwise the
    ///                   provider's default container
    /// @param flags      as for CryptAcquireContext()
    /// @throws WinError
    CapiInit(const char* provider, const char* container, std::uint32_t flags);
    ~CapiInit();
    CapiInit(const CapiInit&) = delete;
    CapiInit& operator=(const CapiInit&) = delete;

    /// Gets the container's key of that type, after destroying the handle of an earlier key. @throws WinError
    void fetch_key(std::uint32_t key_type_in);

    /// Like fetch_key(), but logs a failure instead of throwing: a missing key with severity info, every
    /// other failure with severity warn.
    /// @return whether the key was fetched
    bool try_fetch_key(std::uint32_t key_type_in);

    /// The handles, borrowed. Valid as long as this object exists; the key only until the next fetch.
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
    UniqueHandle<KeyTraits> hkey; // after hprov, so that it is destroyed first
    std::string prov_name;
    std::string key_container;
    std::uint32_t key_type;
};

/// Traits of CapiParamReader for the parameters of a provider.
struct CapiProvParam {
    using Handle = HCRYPTPROV;
    static bool get(Handle handle, DWORD param, BYTE* data, DWORD* length, DWORD flags) noexcept {
        return ::CryptGetProvParam(handle, param, data, length, flags) != 0;
    }
    static constexpr const char* function = "CryptGetProvParam";
    static constexpr const char* reader = "CapiProvParamReader";
    static constexpr bool is_enumerable = true; ///< ERROR_NO_MORE_ITEMS is the end, not a failure
    static constexpr const char* unsupported_location =
        "capi_helper:244 Kes::CapiProvParamReader::read_len()";
    static constexpr const char* length_location = "capi_helper:252 Kes::CapiProvParamReader::read_len()";
    static constexpr const char* data_location = "capi_helper:289 Kes::CapiProvParamReader::read()";
};

/// Traits of CapiParamReader for the parameters of a key.
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

/// Reads one parameter of a provider or a key, and owns the result.
template <typename Traits>
class CapiParamReader {
public:
    /// Reads the parameter.
    /// @param handle_in  borrowed; must outlive this object
    /// @throws Error unsupported if the provider does not know the parameter, WinError
    CapiParamReader(typename Traits::Handle handle_in, std::uint32_t param_in, std::uint32_t flags_in);
    ~CapiParamReader();
    CapiParamReader(const CapiParamReader&) = delete;
    CapiParamReader& operator=(const CapiParamReader&) = delete;

    /// The value of the parameter. Empty if nothing was read, for example at the end of an enumeration.
    const std::vector<unsigned char>& data() const noexcept { return data_; }

    /// The value as text, up to the first NUL. Some providers omit the NUL.
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

/// Returns the names of all containers, in the provider's order. @throws Error unsupported, WinError
std::vector<std::string> read_capi_containers(HCRYPTPROV provider);

/// The key specifications that the provider's containers may have, in ascending order, each a single bit.
struct CapiKeySpecs {
    std::uint32_t mask;
    std::vector<std::uint32_t> list;
};

/// Reads the key specifications from the provider. If the provider returns nothing usable, the result
/// contains key exchange and signature.
CapiKeySpecs read_capi_key_specs(HCRYPTPROV provider);

/// Returns the DER encoding of the certificate that is stored with the key; empty if the key has none.
/// @throws Error unsupported, WinError
std::vector<unsigned char> read_capi_key_certificate(HCRYPTKEY key);

/// The public key of the container's key pair, as the DER encoding of a SubjectPublicKeyInfo (RFC 5280, 4.1).
class CapiPubKey {
public:
    /// Exports and encodes the key. @throws WinError
    CapiPubKey(HCRYPTPROV provider, std::uint32_t key_spec);

    const std::vector<unsigned char>& der() const noexcept { return der_; }

private:
    std::vector<unsigned char> der_;
};

} // namespace Kes

#endif // KES_CAPI_CAPI_HELPER_H_
