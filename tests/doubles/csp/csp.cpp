// The provider's functions for contexts, keys, certificates and parameters. The system's software provider
// performs the key operations: it receives the card's keys and stores none of them.
#include <algorithm>
#include <cstring>
#include <functional>
#include <string>

#include "csp_call.h"
#include "csp_files.h"
#include "csp_handles.h"
#include "rsaenh.h"

namespace Kes::test_card {
namespace {

BOOL fail(LONG error) {
    ::SetLastError(static_cast<DWORD>(error));
    return FALSE;
}

/// Returns data as all CryptoAPI functions do: only the size if the buffer is null, or else the data if it
/// fits.
BOOL give(const void* data, std::size_t size, BYTE* buffer, DWORD* length) {
    const DWORD room = *length;
    *length = static_cast<DWORD>(size);
    if (buffer == nullptr) return TRUE;
    if (room < size) return fail(ERROR_MORE_DATA);
    std::memcpy(buffer, data, size);
    return TRUE;
}

BOOL give_text(const std::string& text, BYTE* buffer, DWORD* length) {
    return give(text.c_str(), text.size() + 1, buffer, length);
}

std::string container_of(HCRYPTPROV provider) {
    const Object* context = handles().find('p', provider);
    return context == nullptr ? "?" : context->container;
}

std::string sized(const char* point, const BYTE* buffer) {
    return buffer == nullptr ? std::string(point) + "_size" : point;
}

BOOL open_container(HCRYPTPROV* provider, const char* name, DWORD flags, const ProviderTable& table,
                    Note& note) {
    const Card card;
    const std::string container = name == nullptr ? "" : name;
    if (!card.is_there()) return fail(SCARD_E_NO_SMARTCARD);
    if ((flags & ~(CRYPT_VERIFYCONTEXT | CRYPT_SILENT)) != 0) return fail(NTE_BAD_FLAGS); // the card is fixed
    if (!container.empty() && !card.has(container)) return fail(NTE_BAD_KEYSET);
    HCRYPTPROV inner = 0;
    if (!open_rsaenh(&inner, table)) return FALSE;
    for (const DWORD key_spec : {AT_KEYEXCHANGE, AT_SIGNATURE}) {
        const auto blob = card.key(container, key_spec);
        HCRYPTKEY key = 0;
        if (!blob) continue;
        if (!rsaenh("CPImportKey", inner, blob->data(), static_cast<DWORD>(blob->size()), HCRYPTKEY{0},
                    DWORD{0}, &key)) {
            const DWORD error = ::GetLastError();
            rsaenh("CPReleaseContext", inner, DWORD{0});
            ::SetLastError(error);
            return FALSE;
        }
        rsaenh("CPDestroyKey", inner, key); // the context keeps the pair
    }
    const std::string own_name = table.provider_name == nullptr ? "" : table.provider_name;
    *provider = handles().add({'p', inner, container, own_name, {}, 0}, note);
    return TRUE;
}

BOOL list_container(Object& context, DWORD flags, BYTE* buffer, DWORD* length) {
    if ((flags & CRYPT_FIRST) != 0) context.to_list = Card().containers();
    if (buffer == nullptr) return give(nullptr, MAX_PATH + 1, nullptr, length); // sufficient for any name
    if (context.to_list.empty()) return fail(ERROR_NO_MORE_ITEMS);
    if (!give_text(context.to_list.front(), buffer, length)) return FALSE;
    context.to_list.erase(context.to_list.begin());
    return TRUE;
}

BOOL give_certificate(const Object& key, BYTE* buffer, DWORD* length) {
    const auto certificate = Card().certificate(key.container, key.key_spec);
    if (!certificate) return fail(SCARD_E_NO_SUCH_CERTIFICATE);
    return give(certificate->data(), certificate->size(), buffer, length);
}

} // namespace
} // namespace Kes::test_card

using namespace Kes::test_card;

extern "C" {

BOOL WINAPI CPAcquireContext(HCRYPTPROV* provider, LPSTR container, DWORD flags, ProviderTable* table) {
    return call("acquire", container == nullptr ? "" : container,
                [&](Note& note) { return open_container(provider, container, flags, *table, note); });
}

BOOL WINAPI CPReleaseContext(HCRYPTPROV provider, DWORD flags) {
    const auto release = [&](Note& note) {
        const HCRYPTPROV inner = handles().inner('p', provider);
        if (inner == 0) return FALSE;
        handles().remove('p', provider, note);
        return rsaenh("CPReleaseContext", inner, flags);
    };
    return call("release", container_of(provider), release, true);
}

BOOL WINAPI CPGetProvParam(HCRYPTPROV provider, DWORD parameter, BYTE* buffer, DWORD* length, DWORD flags) {
    Object* context = handles().find('p', provider);
    if (context == nullptr) return FALSE;
    const auto logged = [&](const char* point, const std::function<BOOL()>& get) {
        return call(sized(point, buffer), context->container, [&](Note&) { return get(); });
    };
    const DWORD key_specs = AT_KEYEXCHANGE | AT_SIGNATURE;
    switch (parameter) {
    case PP_NAME:
        return logged("name", [&] { return give_text(context->provider_name, buffer, length); });
    case PP_CONTAINER:
        return logged("container", [&] { return give_text(context->container, buffer, length); });
    case PP_ENUMCONTAINERS:
        return logged("list", [&] { return list_container(*context, flags, buffer, length); });
    case PP_KEYSPEC:
        return logged("key_specs", [&] { return give(&key_specs, sizeof key_specs, buffer, length); });
    default:
        return logged("parameter", [&] {
            return rsaenh("CPGetProvParam", context->inner, parameter, buffer, length, flags);
        });
    }
}

BOOL WINAPI CPSetProvParam(HCRYPTPROV provider, DWORD parameter, BYTE* data, DWORD flags) {
    return call("set_parameter", container_of(provider), [&](Note&) {
        return rsaenh("CPSetProvParam", handles().inner('p', provider), parameter, data, flags);
    });
}

BOOL WINAPI CPGetUserKey(HCRYPTPROV provider, DWORD key_spec, HCRYPTKEY* key) {
    const std::string container = container_of(provider);
    return call("user_key_" + std::to_string(key_spec), container, [&](Note& note) {
        HCRYPTKEY inner = 0;
        if (!rsaenh("CPGetUserKey", handles().inner('p', provider), key_spec, &inner)) return FALSE;
        *key = handles().add({'k', inner, container, "", {}, key_spec}, note);
        return TRUE;
    });
}

BOOL WINAPI CPDestroyKey(HCRYPTPROV provider, HCRYPTKEY key) {
    const auto destroy = [&](Note& note) {
        const HCRYPTKEY inner = handles().inner('k', key);
        if (inner == 0) return FALSE;
        handles().remove('k', key, note);
        return rsaenh("CPDestroyKey", handles().inner('p', provider), inner);
    };
    return call("destroy_key", container_of(provider), destroy, true);
}

BOOL WINAPI CPGetKeyParam(HCRYPTPROV provider, HCRYPTKEY key, DWORD parameter, BYTE* buffer, DWORD* length,
                          DWORD flags) {
    const Object* object = handles().find('k', key);
    if (object == nullptr) return FALSE;
    if (parameter == KP_CERTIFICATE && object->key_spec != 0)
        return call(sized("certificate", buffer), object->container,
                    [&](Note&) { return give_certificate(*object, buffer, length); });
    return call(sized("key_parameter", buffer), object->container, [&](Note&) {
        return rsaenh("CPGetKeyParam", handles().inner('p', provider), object->inner, parameter, buffer,
                      length, flags);
    });
}

BOOL WINAPI CPSetKeyParam(HCRYPTPROV provider, HCRYPTKEY key, DWORD parameter, BYTE* data, DWORD flags) {
    return call("set_key_parameter", container_of(provider), [&](Note&) {
        return rsaenh("CPSetKeyParam", handles().inner('p', provider), handles().inner('k', key), parameter,
                      data, flags);
    });
}

BOOL WINAPI CPExportKey(HCRYPTPROV provider, HCRYPTKEY key, HCRYPTKEY export_key, DWORD type, DWORD flags,
                        BYTE* buffer, DWORD* length) {
    return call(sized("export", buffer), container_of(provider), [&](Note&) {
        if (type != PUBLICKEYBLOB) return fail(NTE_BAD_KEY_STATE); // private keys cannot be exported
        return rsaenh("CPExportKey", handles().inner('p', provider), handles().inner('k', key),
                      handles().inner('k', export_key), type, flags, buffer, length);
    });
}

BOOL WINAPI CPImportKey(HCRYPTPROV provider, const BYTE* data, DWORD length, HCRYPTKEY import_key,
                        DWORD flags, HCRYPTKEY* key) {
    const std::string container = container_of(provider);
    return call("import", container, [&](Note& note) {
        HCRYPTKEY inner = 0;
        if (!rsaenh("CPImportKey", handles().inner('p', provider), data, length,
                    handles().inner('k', import_key), flags, &inner))
            return FALSE;
        *key = handles().add({'k', inner, container, "", {}, 0}, note);
        return TRUE;
    });
}

BOOL WINAPI CPGenKey(HCRYPTPROV provider, ALG_ID algorithm, DWORD flags, HCRYPTKEY* key) {
    const std::string container = container_of(provider);
    return call("generate", container, [&](Note& note) {
        HCRYPTKEY inner = 0;
        if (!rsaenh("CPGenKey", handles().inner('p', provider), algorithm, flags, &inner)) return FALSE;
        *key = handles().add({'k', inner, container, "", {}, 0}, note);
        return TRUE;
    });
}

} // extern "C"
