#include <algorithm>
#include <cstring>
#include <openssl/x509.h>

#include "doubles/text_or_null.h"
#include "scripted_capi.h"
#include "support/certificates.h"
#include "utils/ossl_ptr.h"

/// Providers, containers and keys.
namespace Kes::test {
namespace {

ScriptedCapi& the_double() { return ScriptedCapi::instance(); }

CallScript& script() { return CallScript::instance(); }

std::string hex(DWORD number) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%x", number);
    return text;
}

void require(bool is_right, const char* remark) {
    if (!is_right) script().violation(remark);
}

template <typename List>
auto find_named(List& list, const char* name) {
    return std::find_if(list.begin(), list.end(), [&](const auto& item) { return item.name == name; });
}

/// The recorded arguments of a call that reads a parameter.
std::string param_call(const std::string& handle, DWORD param, DWORD flags, const BYTE* data) {
    return handle + ", " + std::to_string(param) + ", " + std::to_string(flags) +
           (data == nullptr ? ", size" : ", read");
}

Bytes bytes_of(const std::string& text, bool has_end = true) {
    Bytes bytes(text.begin(), text.end());
    if (has_end) bytes.push_back(0);
    return bytes;
}

Bytes bytes_of(DWORD number) {
    Bytes bytes(sizeof number);
    std::memcpy(bytes.data(), &number, sizeof number);
    return bytes;
}

bool give_next_name(ScriptedCapi::Provider& provider, BYTE* data, DWORD* length, DWORD flags) {
    constexpr DWORD longest_path = 260;
    if (flags != CRYPT_FIRST && flags != CRYPT_NEXT) script().violation("PP_ENUMCONTAINERS: wrong flags");
    if (flags == CRYPT_FIRST) provider.next_name = 0;
    const auto& containers = provider.script->containers;
    const bool is_end = provider.next_name == containers.size();
    if (is_end && (data != nullptr || !provider.script->reports_end_on_read))
        return the_double().fail(DWORD{ERROR_NO_MORE_ITEMS});
    if (data == nullptr) {
        const auto odd = the_double().odd_answers.find("CryptGetProvParam 2");
        *length = odd == the_double().odd_answers.end() ? longest_path + 1 : odd->second.size.value_or(0);
        return true;
    }
    const Bytes name = bytes_of(containers[provider.next_name].name, provider.script->ends_names);
    if (!the_double().give("CryptGetProvParam 2", name, data, length)) return false;
    ++provider.next_name;
    return true;
}

bool give_prov_param(ScriptedCapi::Provider& provider, DWORD param, BYTE* data, DWORD* length, DWORD flags) {
    const std::string what = "CryptGetProvParam " + std::to_string(param);
    const ScriptedProvider& source = *provider.script;
    if (param == PP_ENUMCONTAINERS) return give_next_name(provider, data, length, flags);
    require(flags == 0, "CryptGetProvParam: flags");
    if (param == PP_NAME)
        return the_double().give(what, bytes_of(source.name, source.ends_names), data, length);
    if (param == PP_KEYSPEC) return the_double().give(what, bytes_of(source.key_specs), data, length);
    if (param == PP_CONTAINER) {
        const std::string& name = provider.container ? provider.container->name : source.default_container;
        return the_double().give(what, bytes_of(name, source.ends_names), data, length);
    }
    return the_double().fail(NTE_BAD_TYPE);
}

/// Writes a CERT_PUBLIC_KEY_INFO, followed by the data that it points to.
struct PackedKey {
    std::string algorithm;
    Bytes parameters;
    Bytes key;

    explicit PackedKey(EVP_PKEY* source) {
        X509_PUBKEY* packed = nullptr;
        ::X509_PUBKEY_set(&packed, source);
        ASN1_OBJECT* object = nullptr;
        const unsigned char* bits = nullptr;
        int num_bits = 0;
        X509_ALGOR* algor = nullptr;
        ::X509_PUBKEY_get0_param(&object, &bits, &num_bits, &algor, packed);
        char text[64];
        ::OBJ_obj2txt(text, sizeof text, object, 1);
        algorithm = text;
        key.assign(bits, bits + num_bits);
        int type = 0;
        const void* value = nullptr;
        ::X509_ALGOR_get0(nullptr, &type, &value, algor);
        unsigned char* der = nullptr;
        const int length = ::i2d_ASN1_TYPE(algor->parameter, &der);
        parameters.assign(der, der + length);
        ::OPENSSL_free(der);
        ::X509_PUBKEY_free(packed);
    }

    std::size_t size() const {
        return sizeof(CERT_PUBLIC_KEY_INFO) + algorithm.size() + 1 + parameters.size() + key.size();
    }

    void write(CERT_PUBLIC_KEY_INFO* info) const {
        auto* next = reinterpret_cast<BYTE*>(info + 1);
        const auto place = [&](const void* data, std::size_t length) {
            BYTE* begin = next;
            if (length != 0) std::memcpy(begin, data, length);
            next += length;
            return begin;
        };
        BYTE* name = place(algorithm.c_str(), algorithm.size() + 1);
        BYTE* params = place(parameters.data(), parameters.size());
        *info = {{reinterpret_cast<char*>(name), {static_cast<DWORD>(parameters.size()), params}},
                 {static_cast<DWORD>(key.size()), place(key.data(), key.size()), 0}};
    }
};

/// The DER encoding of a CERT_PUBLIC_KEY_INFO.
Bytes encode(const CERT_PUBLIC_KEY_INFO& info) {
    const unsigned char* params = info.Algorithm.Parameters.pbData;
    ASN1_TYPE* type = ::d2i_ASN1_TYPE(nullptr, &params, static_cast<long>(info.Algorithm.Parameters.cbData));
    X509_PUBKEY* packed = ::X509_PUBKEY_new();
    auto* bits = static_cast<unsigned char*>(::OPENSSL_memdup(info.PublicKey.pbData, info.PublicKey.cbData));
    void* value = type->type == V_ASN1_NULL ? nullptr : ::OBJ_dup(type->value.object);
    ::X509_PUBKEY_set0_param(packed, ::OBJ_txt2obj(info.Algorithm.pszObjId, 1), type->type, value, bits,
                             static_cast<int>(info.PublicKey.cbData));
    Bytes der = der_by(::i2d_X509_PUBKEY, packed);
    ::X509_PUBKEY_free(packed);
    ::ASN1_TYPE_free(type);
    return der;
}

bool export_key(ScriptedCapi::Provider& provider, DWORD key_spec, CERT_PUBLIC_KEY_INFO* info, DWORD* size) {
    if (provider.container == nullptr || !provider.container->keys.contains(key_spec))
        return the_double().fail(NTE_NO_KEY);
    const PackedKey packed(provider.container->keys.at(key_spec).public_key);
    // Check the size with zeros first, and write the key only if it fits.
    if (!the_double().give("CryptExportPublicKeyInfoEx", Bytes(packed.size()), info, size)) return false;
    if (info != nullptr) packed.write(info);
    return true;
}

} // namespace
} // namespace Kes::test

using Kes::test::CallScript;
using Kes::test::require;
using Kes::test::ScriptedCapi;
using Kes::test::text_or_null;
using Kes::test::the_double;

extern "C" {

BOOL CryptAcquireContextA(HCRYPTPROV* phProv, LPCSTR szContainer, LPCSTR szProvider, DWORD dwProvType,
                          DWORD dwFlags) {
    const std::string what = szContainer == nullptr ? "" : szContainer;
    *phProv = the_double().junk_handle.value_or(*phProv);
    if (!the_double().enter("CryptAcquireContextA",
                            text_or_null(szContainer) + ", " + text_or_null(szProvider) + ", " +
                                std::to_string(dwProvType) + ", " + Kes::test::hex(dwFlags),
                            what))
        return FALSE;
    auto& providers = the_double().providers;
    const auto provider =
        szProvider == nullptr ? providers.begin() : Kes::test::find_named(providers, szProvider);
    if (provider == providers.end()) return the_double().fail(NTE_KEYSET_NOT_DEF);
    ScriptedCapi::Provider opened{"prov", &*provider, nullptr};
    if (szContainer != nullptr) {
        const auto container = Kes::test::find_named(provider->containers, szContainer);
        if (container == provider->containers.end()) return the_double().fail(NTE_BAD_KEYSET);
        opened.label += ":" + container->name;
        opened.container = &*container;
    }
    *phProv = the_double().add(std::move(opened));
    return TRUE;
}

BOOL CryptReleaseContext(HCRYPTPROV hProv, DWORD dwFlags) {
    require(dwFlags == 0, "CryptReleaseContext: flags");
    const auto* provider = the_double().find_provider(hProv, "CryptReleaseContext");
    const std::string label = provider == nullptr ? "?" : provider->label;
    const bool is_good = the_double().enter("CryptReleaseContext", label);
    if (provider == nullptr) return FALSE;
    the_double().end_provider(hProv); // the handle is invalid even if the release fails
    return is_good ? TRUE : FALSE;
}

BOOL CryptGetProvParam(HCRYPTPROV hProv, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen, DWORD dwFlags) {
    auto* provider = the_double().find_provider(hProv, "CryptGetProvParam");
    const std::string label = provider == nullptr ? "?" : provider->label;
    if (!the_double().enter("CryptGetProvParam", Kes::test::param_call(label, dwParam, dwFlags, pbData),
                            std::to_string(dwParam)))
        return FALSE;
    if (provider == nullptr) return the_double().fail(DWORD{ERROR_INVALID_HANDLE});
    return Kes::test::give_prov_param(*provider, dwParam, pbData, pdwDataLen, dwFlags) ? TRUE : FALSE;
}

BOOL CryptGetUserKey(HCRYPTPROV hProv, DWORD dwKeySpec, HCRYPTKEY* phUserKey) {
    auto* provider = the_double().find_provider(hProv, "CryptGetUserKey");
    const std::string label = provider == nullptr ? "?" : provider->label;
    require(*phUserKey == 0, "CryptGetUserKey: in the place of a key that was not destroyed");
    *phUserKey = the_double().junk_handle.value_or(*phUserKey);
    if (!the_double().enter("CryptGetUserKey", label + ", " + std::to_string(dwKeySpec))) return FALSE;
    if (provider == nullptr) return the_double().fail(DWORD{ERROR_INVALID_HANDLE});
    if (provider->container == nullptr || !provider->container->keys.contains(dwKeySpec))
        return the_double().fail(NTE_NO_KEY);
    *phUserKey = the_double().add(
        ScriptedCapi::Key{"key:" + provider->container->name + "/" + std::to_string(dwKeySpec), hProv,
                          &provider->container->keys.at(dwKeySpec)});
    return TRUE;
}

BOOL CryptGetKeyParam(HCRYPTKEY hKey, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen, DWORD dwFlags) {
    auto* key = the_double().find_key(hKey, "CryptGetKeyParam");
    const std::string label = key == nullptr ? "?" : key->label;
    require(dwFlags == 0, "CryptGetKeyParam: flags");
    if (!the_double().enter("CryptGetKeyParam", Kes::test::param_call(label, dwParam, dwFlags, pbData),
                            std::to_string(dwParam)))
        return FALSE;
    if (key == nullptr) return the_double().fail(DWORD{ERROR_INVALID_HANDLE});
    if (dwParam != KP_CERTIFICATE) return the_double().fail(NTE_BAD_TYPE);
    if (!key->script->certificate) return the_double().fail(SCARD_E_NO_SUCH_CERTIFICATE);
    return the_double().give("CryptGetKeyParam 26", *key->script->certificate, pbData, pdwDataLen) ? TRUE
                                                                                                   : FALSE;
}

BOOL CryptDestroyKey(HCRYPTKEY hKey) {
    const auto* key = the_double().find_key(hKey, "CryptDestroyKey");
    const std::string label = key == nullptr ? "?" : key->label;
    const bool is_good = the_double().enter("CryptDestroyKey", label);
    if (key == nullptr) return FALSE;
    the_double().end_key(hKey);
    return is_good ? TRUE : FALSE;
}

BOOL CryptExportPublicKeyInfoEx(HCRYPTPROV hCryptProv, DWORD dwKeySpec, DWORD dwCertEncodingType,
                                LPSTR pszPublicKeyObjId, DWORD dwFlags, void* pvAuxInfo,
                                CERT_PUBLIC_KEY_INFO* pInfo, DWORD* pcbInfo) {
    auto* provider = the_double().find_provider(hCryptProv, "CryptExportPublicKeyInfoEx");
    const std::string label = provider == nullptr ? "?" : provider->label;
    require(dwCertEncodingType == 0x10001 && pszPublicKeyObjId == nullptr && dwFlags == 0 &&
                pvAuxInfo == nullptr,
            "CryptExportPublicKeyInfoEx: wrong arguments");
    if (!the_double().enter("CryptExportPublicKeyInfoEx", label + ", " + std::to_string(dwKeySpec) +
                                                              (pInfo == nullptr ? ", size" : ", read")))
        return FALSE;
    if (provider == nullptr) return the_double().fail(DWORD{ERROR_INVALID_HANDLE});
    return Kes::test::export_key(*provider, dwKeySpec, pInfo, pcbInfo) ? TRUE : FALSE;
}

BOOL CryptEncodeObjectEx(DWORD dwCertEncodingType, LPCSTR lpszStructType, const void* pvStructInfo,
                         DWORD dwFlags, void* pEncodePara, void* pvEncoded, DWORD* pcbEncoded) {
    require(dwCertEncodingType == 0x10001 && lpszStructType == X509_PUBLIC_KEY_INFO && dwFlags == 0 &&
                pEncodePara == nullptr,
            "CryptEncodeObjectEx: wrong arguments");
    if (!the_double().enter("CryptEncodeObjectEx", pvEncoded == nullptr ? "size" : "read")) return FALSE;
    const auto* info = static_cast<const CERT_PUBLIC_KEY_INFO*>(pvStructInfo);
    return the_double().give("CryptEncodeObjectEx", Kes::test::encode(*info), pvEncoded, pcbEncoded) ? TRUE
                                                                                                     : FALSE;
}

} // extern "C"
