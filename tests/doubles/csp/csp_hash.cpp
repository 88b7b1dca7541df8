// The provider's functions for hashes, signatures, encryption and random numbers.
#include <string>

#include "csp_call.h"
#include "csp_handles.h"
#include "rsaenh.h"

namespace Kes::test_card {
namespace {

/// Performs a call with the context's container.
BOOL call_of(HCRYPTPROV provider, const char* point, const std::function<BOOL(HCRYPTPROV, Note&)>& body,
             bool is_release = false) {
    const Object* context = handles().find('p', provider);
    if (context == nullptr) return FALSE;
    return call(
        point, context->container, [&](Note& note) { return body(context->inner, note); }, is_release);
}

HCRYPTHASH hash_of(HCRYPTHASH handle) { return handles().inner('h', handle); }
HCRYPTKEY key_of(HCRYPTKEY handle) { return handles().inner('k', handle); }

} // namespace
} // namespace Kes::test_card

using namespace Kes::test_card;

extern "C" {

BOOL WINAPI CPCreateHash(HCRYPTPROV provider, ALG_ID algorithm, HCRYPTKEY key, DWORD flags,
                         HCRYPTHASH* hash) {
    return call_of(provider, "create_hash", [&](HCRYPTPROV inner, Note& note) {
        HCRYPTHASH made = 0;
        if (!rsaenh("CPCreateHash", inner, algorithm, key_of(key), flags, &made)) return FALSE;
        *hash = handles().add({'h', made, "", "", {}, 0}, note);
        return TRUE;
    });
}

BOOL WINAPI CPDestroyHash(HCRYPTPROV provider, HCRYPTHASH hash) {
    const auto destroy = [&](HCRYPTPROV inner, Note& note) {
        const HCRYPTHASH made = hash_of(hash);
        if (made == 0) return FALSE;
        handles().remove('h', hash, note);
        return rsaenh("CPDestroyHash", inner, made);
    };
    return call_of(provider, "destroy_hash", destroy, true);
}

BOOL WINAPI CPHashData(HCRYPTPROV provider, HCRYPTHASH hash, const BYTE* data, DWORD length, DWORD flags) {
    return call_of(provider, "hash_data", [&](HCRYPTPROV inner, Note&) {
        return rsaenh("CPHashData", inner, hash_of(hash), data, length, flags);
    });
}

BOOL WINAPI CPHashSessionKey(HCRYPTPROV provider, HCRYPTHASH hash, HCRYPTKEY key, DWORD flags) {
    return call_of(provider, "hash_key", [&](HCRYPTPROV inner, Note&) {
        return rsaenh("CPHashSessionKey", inner, hash_of(hash), key_of(key), flags);
    });
}

BOOL WINAPI CPGetHashParam(HCRYPTPROV provider, HCRYPTHASH hash, DWORD parameter, BYTE* buffer, DWORD* length,
                           DWORD flags) {
    return call_of(provider, "hash_parameter", [&](HCRYPTPROV inner, Note&) {
        return rsaenh("CPGetHashParam", inner, hash_of(hash), parameter, buffer, length, flags);
    });
}

BOOL WINAPI CPSetHashParam(HCRYPTPROV provider, HCRYPTHASH hash, DWORD parameter, BYTE* data, DWORD flags) {
    return call_of(provider, "set_hash", [&](HCRYPTPROV inner, Note&) {
        return rsaenh("CPSetHashParam", inner, hash_of(hash), parameter, data, flags);
    });
}

BOOL WINAPI CPSignHash(HCRYPTPROV provider, HCRYPTHASH hash, DWORD key_spec, LPCWSTR description, DWORD flags,
                       BYTE* signature, DWORD* length) {
    const char* point = signature == nullptr ? "sign_size" : "sign";
    return call_of(provider, point, [&](HCRYPTPROV inner, Note&) {
        return rsaenh("CPSignHash", inner, hash_of(hash), key_spec, description, flags, signature, length);
    });
}

BOOL WINAPI CPVerifySignature(HCRYPTPROV provider, HCRYPTHASH hash, const BYTE* signature, DWORD length,
                              HCRYPTKEY key, LPCWSTR description, DWORD flags) {
    return call_of(provider, "verify", [&](HCRYPTPROV inner, Note&) {
        return rsaenh("CPVerifySignature", inner, hash_of(hash), signature, length, key_of(key), description,
                      flags);
    });
}

BOOL WINAPI CPEncrypt(HCRYPTPROV provider, HCRYPTKEY key, HCRYPTHASH hash, BOOL is_final, DWORD flags,
                      BYTE* data, DWORD* length, DWORD room) {
    return call_of(provider, "encrypt", [&](HCRYPTPROV inner, Note&) {
        return rsaenh("CPEncrypt", inner, key_of(key), hash_of(hash), is_final, flags, data, length, room);
    });
}

BOOL WINAPI CPDecrypt(HCRYPTPROV provider, HCRYPTKEY key, HCRYPTHASH hash, BOOL is_final, DWORD flags,
                      BYTE* data, DWORD* length) {
    return call_of(provider, "decrypt", [&](HCRYPTPROV inner, Note&) {
        return rsaenh("CPDecrypt", inner, key_of(key), hash_of(hash), is_final, flags, data, length);
    });
}

BOOL WINAPI CPDeriveKey(HCRYPTPROV provider, ALG_ID algorithm, HCRYPTHASH hash, DWORD flags, HCRYPTKEY* key) {
    return call_of(provider, "derive", [&](HCRYPTPROV inner, Note& note) {
        HCRYPTKEY made = 0;
        if (!rsaenh("CPDeriveKey", inner, algorithm, hash_of(hash), flags, &made)) return FALSE;
        *key = handles().add({'k', made, "", "", {}, 0}, note);
        return TRUE;
    });
}

BOOL WINAPI CPGenRandom(HCRYPTPROV provider, DWORD length, BYTE* buffer) {
    return call_of(provider, "random",
                   [&](HCRYPTPROV inner, Note&) { return rsaenh("CPGenRandom", inner, length, buffer); });
}

} // extern "C"
