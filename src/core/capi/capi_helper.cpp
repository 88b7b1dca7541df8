#include "capi/capi_helper.h"

#include <algorithm>
#include <cstring>

#include "base/capi_key_type.h"
#include "utils/error.h"
#include "utils/helper.h"
#include "utils/logger.h"

namespace Kes {
namespace {

constexpr DWORD encoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
constexpr std::uint32_t both_key_specs = capi_key_type_key_exchange | capi_key_type_signature;

std::string hex_text(std::uint32_t number) { return std::string("0x") + Helper::to_hex(number).data(); }

/// Logs the failure of a release function, because release functions do not throw.
void log_failed_release(const char* message) {
    const WinErrorCode code(::GetLastError());
    log_error(WinError(code, message, "").what());
}

std::string read_container(HCRYPTPROV provider) {
    try {
        return CapiProvParamReader(provider, PP_CONTAINER, 0).text();
    } catch (const WinError& error) {
        log_warn(error.what()); // a context without a container may lack the parameter
        return "";
    }
}

} // namespace

CapiInit::CapiInit(const char* provider, const char* container, std::uint32_t flags)
    : key_type(capi_key_type_signature) {
    if (container == nullptr && flags == 0) flags = CRYPT_VERIFYCONTEXT;
    if (::CryptAcquireContextA(hprov.put(), container, provider, PROV_RSA_FULL, flags) == FALSE) {
        const WinErrorCode code(::GetLastError());
        hprov.release(); // not closed: a provider that fails may have stored an invalid handle
        throw WinError(code,
                       std::string("CryptAcquireContext() with prov_name=") +
                           (provider == nullptr ? "nullptr" : provider) +
                           ", key_container_name=" + (container == nullptr ? "nullptr" : container) +
                           ", flags=" + hex_text(flags) + " failed",
                       "capi_helper:79 Kes::CapiInit::CapiInit()");
    }
    prov_name = provider != nullptr ? provider : CapiProvParamReader(hprov.get(), PP_NAME, 0).text();
    key_container = container != nullptr ? container : read_container(hprov.get());
    log_info("capi initialized (provider=", prov_name, provider == nullptr ? " (default)" : "",
             ", key_container=", key_container, container == nullptr ? " (default)" : "",
             ", flags=", hex_text(flags), ")");
}

CapiInit::~CapiInit() {
    hkey.reset();
    hprov.reset();
    log_info("capi destroyed");
}

void CapiInit::ProvTraits::close(Raw handle) noexcept {
    if (::CryptReleaseContext(handle, 0) == FALSE) log_failed_release("CryptReleaseContext() failed");
}

void CapiInit::KeyTraits::close(Raw handle) noexcept {
    if (::CryptDestroyKey(handle) == FALSE) log_failed_release("CryptDestroyKey() failed");
}

void CapiInit::fetch_key(std::uint32_t key_type_in) {
    if (::CryptGetUserKey(hprov.get(), key_type_in, hkey.put()) == FALSE) {
        const WinErrorCode code(::GetLastError());
        hkey.release(); // not closed, as in the constructor
        throw WinError(code, "CryptGetUserKey() with key_type=" + capi_key_type_name(key_type_in) + " failed",
                       "capi_helper:113 Kes::CapiInit::fetch_key()");
    }
    key_type = key_type_in;
    log_info("fetched user key with key_type=", capi_key_type_name(key_type));
}

bool CapiInit::try_fetch_key(std::uint32_t key_type_in) {
    try {
        fetch_key(key_type_in);
        return true;
    } catch (const WinError& error) {
        if (error.code().value == static_cast<DWORD>(NTE_NO_KEY))
            log_info("no user key with key_type=", capi_key_type_name(key_type_in));
        else
            log_warn(error.what());
        return false;
    }
}

template <typename Traits>
CapiParamReader<Traits>::CapiParamReader(typename Traits::Handle handle_in, std::uint32_t param_in,
                                         std::uint32_t flags_in)
    : handle(handle_in), param(param_in), flags(flags_in) {
    read();
    log_trace("created ", Traits::reader, " object");
}

template <typename Traits>
CapiParamReader<Traits>::~CapiParamReader() {
    data_.clear();
    log_trace("destroyed ", Traits::reader, " object");
}

template <typename Traits>
std::string CapiParamReader<Traits>::text() const {
    return {data_.begin(), std::find(data_.begin(), data_.end(), 0)};
}

template <typename Traits>
std::string CapiParamReader<Traits>::failure_message() const {
    return std::string(Traits::function) + "(param=" + std::to_string(param) +
           ", flags=" + std::to_string(flags) + ") failed";
}

template <typename Traits>
DWORD CapiParamReader<Traits>::read_len() const {
    DWORD length = 0;
    if (Traits::get(handle, param, nullptr, &length, flags)) return length;
    const DWORD error = ::GetLastError();
    if (error == static_cast<DWORD>(NTE_BAD_TYPE))
        throw Error(ErrorCodeType::unsupported,
                    std::string(Traits::function) + "() with param=" + std::to_string(param) +
                        ", flags=" + std::to_string(flags) + " is not supported",
                    Traits::unsupported_location);
    if (Traits::is_enumerable && error == ERROR_NO_MORE_ITEMS) return 0;
    throw WinError(WinErrorCode(error), failure_message(), Traits::length_location);
}

template <typename Traits>
void CapiParamReader<Traits>::read() {
    DWORD length = read_len();
    if (length == 0) return;
    data_.resize(length);
    if (Traits::get(handle, param, data_.data(), &length, flags)) {
        data_.resize(std::min<std::size_t>(length, data_.size())); // some providers report a larger length
        return;
    }
    const DWORD error = ::GetLastError();
    data_.clear();
    if (Traits::is_enumerable && error == ERROR_NO_MORE_ITEMS) return;
    throw WinError(WinErrorCode(error), failure_message(), Traits::data_location);
}

template class CapiParamReader<CapiProvParam>;
template class CapiParamReader<CapiKeyParam>;

std::vector<std::string> read_capi_containers(HCRYPTPROV provider) {
    std::vector<std::string> containers;
    for (std::uint32_t flags = CRYPT_FIRST;; flags = CRYPT_NEXT) {
        const CapiProvParamReader reader(provider, PP_ENUMCONTAINERS, flags);
        if (reader.data().empty()) return containers;
        containers.push_back(reader.text());
    }
}

CapiKeySpecs read_capi_key_specs(HCRYPTPROV provider) {
    CapiKeySpecs key_specs{};
    try {
        const CapiProvParamReader reader(provider, PP_KEYSPEC, 0);
        if (reader.data().size() == sizeof key_specs.mask)
            std::memcpy(&key_specs.mask, reader.data().data(), sizeof key_specs.mask);
    } catch (const ErrorBase& error) {
        log_debug(error.what()); // not every provider knows the parameter
    }
    if (key_specs.mask == 0) {
        log_warn("keyspec mask is 0 -> updating it to ", both_key_specs);
        key_specs.mask = both_key_specs;
    }
    for (std::uint64_t bit = 1; bit <= key_specs.mask; bit <<= 1U)
        if ((key_specs.mask & bit) != 0) key_specs.list.push_back(static_cast<std::uint32_t>(bit));
    return key_specs;
}

std::vector<unsigned char> read_capi_key_certificate(HCRYPTKEY key) {
    return CapiKeyParamReader(key, KP_CERTIFICATE, 0).data();
}

CapiPubKey::CapiPubKey(HCRYPTPROV provider, std::uint32_t key_spec) {
    const auto check = [](BOOL is_good, const char* message, const char* location) {
        if (is_good != FALSE) return;
        const WinErrorCode code(::GetLastError());
        throw WinError(code, message, location);
    };
    constexpr const char* export_message = "CryptExportPublicKeyInfoEx() failed";
    constexpr const char* encode_message = "CryptEncodeObjectEx() failed";
    DWORD size = 0;
    check(::CryptExportPublicKeyInfoEx(provider, key_spec, encoding, nullptr, 0, nullptr, nullptr, &size),
          export_message, "capi_helper:512 Kes::CapiPubKey::CapiPubKey()");
    // The function writes the structure at the start and the data that it points to behind it. The alignment
    // of allocated memory is sufficient for the structure.
    std::vector<unsigned char> memory(std::max<std::size_t>(size, sizeof(CERT_PUBLIC_KEY_INFO)));
    auto* info = reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(memory.data());
    check(::CryptExportPublicKeyInfoEx(provider, key_spec, encoding, nullptr, 0, nullptr, info, &size),
          export_message, "capi_helper:520 Kes::CapiPubKey::CapiPubKey()");
    check(::CryptEncodeObjectEx(encoding, X509_PUBLIC_KEY_INFO, info, 0, nullptr, nullptr, &size),
          encode_message, "capi_helper:528 Kes::CapiPubKey::CapiPubKey()");
    der_.resize(size);
    check(::CryptEncodeObjectEx(encoding, X509_PUBLIC_KEY_INFO, info, 0, nullptr, der_.data(), &size),
          encode_message, "capi_helper:538 Kes::CapiPubKey::CapiPubKey()");
    der_.resize(std::min<std::size_t>(size, der_.size()));
}

} // namespace Kes
