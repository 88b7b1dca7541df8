#ifndef KES_TESTS_DOUBLES_PKCS11_MODULE_MODULE_CLIENT_H_
#define KES_TESTS_DOUBLES_PKCS11_MODULE_MODULE_CLIENT_H_

#include <gtest/gtest.h>
#include <p11-kit/pkcs11.h>
#include <string>
#include <vector>

#include "support/file_tokens.h"

namespace Kes::test {

/// Loads the module in a folder with one token, and calls it as a program that knows PKCS#11.
class FileTokensTest : public ::testing::Test {
protected:
    FileTokensTest();
    ~FileTokensTest() override;

    /// Initialises the module, lists the slots and opens a session in the slot.
    CK_SESSION_HANDLE open(CK_SLOT_ID slot = 0);

    CK_RV log_in(CK_SESSION_HANDLE session, const std::string& pin) const;

    std::vector<CK_SLOT_ID> slots(CK_BBOOL with_token) const;
    CK_TOKEN_INFO token_info(CK_SLOT_ID slot = 0) const;
    CK_FLAGS token_flags() const { return token_info().flags; }

    /// The handles of the objects with these attributes.
    std::vector<CK_OBJECT_HANDLE> find(CK_SESSION_HANDLE session,
                                       std::vector<CK_ATTRIBUTE> wanted = {}) const;
    std::vector<CK_OBJECT_HANDLE> find(CK_SESSION_HANDLE session, CK_OBJECT_CLASS type) const;

    /// The value of an attribute.
    std::string value(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) const;

    /// Signs with the token's only private key. @return the result of the first call that fails
    CK_RV sign(CK_SESSION_HANDLE session, CK_MECHANISM mechanism, const std::string& data,
               std::string& signature) const;

    FileTokens tokens;
    FileToken token = tokens.add_token("reader 1");
    CK_FUNCTION_LIST* p11 = nullptr;
};

/// A field that is filled up with blanks, without these.
template <std::size_t size>
std::string text_of_field(const unsigned char (&field)[size]) {
    const std::string text(reinterpret_cast<const char*>(field), size);
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_PKCS11_MODULE_MODULE_CLIENT_H_
