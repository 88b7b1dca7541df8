#ifndef KES_TESTS_DOUBLES_PKCS11_MODULE_TOKEN_OBJECTS_H_
#define KES_TESTS_DOUBLES_PKCS11_MODULE_TOKEN_OBJECTS_H_

#include <filesystem>
#include <map>
#include <vector>

#include "crypto.h"

namespace Kes::test {

/// A certificate or key of a token.
struct TokenObject {
    CK_OBJECT_HANDLE handle = CK_INVALID_HANDLE;
    bool is_private = false;
    std::map<CK_ATTRIBUTE_TYPE, Bytes> attributes;
    EvpPkeyPtr key; ///< of a private key only

    bool matches(const CK_ATTRIBUTE* wanted, CK_ULONG count) const;

    /// Stores the attribute's value or its length in the entry, as C_GetAttributeValue() does.
    /// @return CKR_OK or the reason why there is no value
    CK_RV read(CK_ATTRIBUTE& entry) const;
};

/// Reads the file "objects" of a reader's folder, and the keys and certificates that it names.
/// @throws Failure CKR_DEVICE_ERROR if a line or a file cannot be read
std::vector<TokenObject> read_objects(const std::filesystem::path& folder);

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_PKCS11_MODULE_TOKEN_OBJECTS_H_
