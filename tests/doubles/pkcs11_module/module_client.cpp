#include "module_client.h"

#include <array>
#include <dlfcn.h>

namespace Kes::test {

FileTokensTest::FileTokensTest() {
    void* library = ::dlopen(FileTokens::module().c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) throw std::runtime_error(::dlerror());
    const auto get_list = reinterpret_cast<CK_C_GetFunctionList>(::dlsym(library, "C_GetFunctionList"));
    if (get_list(&p11) != CKR_OK) throw std::runtime_error("the module has no function list");
}

FileTokensTest::~FileTokensTest() {
    tokens.clear_failures();
    p11->C_Finalize(nullptr);
}

CK_SESSION_HANDLE FileTokensTest::open(CK_SLOT_ID slot) {
    const CK_RV result = p11->C_Initialize(nullptr);
    EXPECT_TRUE(result == CKR_OK || result == CKR_CRYPTOKI_ALREADY_INITIALIZED);
    slots(CK_FALSE);
    CK_SESSION_HANDLE session = 0;
    EXPECT_EQ(p11->C_OpenSession(slot, CKF_SERIAL_SESSION, nullptr, nullptr, &session), CKR_OK);
    return session;
}

CK_RV FileTokensTest::log_in(CK_SESSION_HANDLE session, const std::string& pin) const {
    std::string copy = pin;
    return p11->C_Login(session, CKU_USER, reinterpret_cast<unsigned char*>(copy.data()), copy.size());
}

std::vector<CK_SLOT_ID> FileTokensTest::slots(CK_BBOOL with_token) const {
    std::vector<CK_SLOT_ID> found(16);
    CK_ULONG count = found.size();
    EXPECT_EQ(p11->C_GetSlotList(with_token, found.data(), &count), CKR_OK);
    found.resize(count);
    return found;
}

CK_TOKEN_INFO FileTokensTest::token_info(CK_SLOT_ID slot) const {
    CK_TOKEN_INFO info{};
    EXPECT_EQ(p11->C_GetTokenInfo(slot, &info), CKR_OK);
    return info;
}

std::vector<CK_OBJECT_HANDLE> FileTokensTest::find(CK_SESSION_HANDLE session,
                                                   std::vector<CK_ATTRIBUTE> wanted) const {
    EXPECT_EQ(p11->C_FindObjectsInit(session, wanted.data(), wanted.size()), CKR_OK);
    std::vector<CK_OBJECT_HANDLE> found;
    CK_OBJECT_HANDLE object = 0;
    for (CK_ULONG count = 1; p11->C_FindObjects(session, &object, 1, &count) == CKR_OK && count == 1;)
        found.push_back(object);
    EXPECT_EQ(p11->C_FindObjectsFinal(session), CKR_OK);
    return found;
}

std::vector<CK_OBJECT_HANDLE> FileTokensTest::find(CK_SESSION_HANDLE session, CK_OBJECT_CLASS type) const {
    return find(session, std::vector<CK_ATTRIBUTE>{{CKA_CLASS, &type, sizeof type}});
}

std::string FileTokensTest::value(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                                  CK_ATTRIBUTE_TYPE type) const {
    CK_ATTRIBUTE entry{type, nullptr, 0};
    EXPECT_EQ(p11->C_GetAttributeValue(session, object, &entry, 1), CKR_OK);
    std::string bytes(entry.ulValueLen, '\0');
    entry.pValue = bytes.data();
    EXPECT_EQ(p11->C_GetAttributeValue(session, object, &entry, 1), CKR_OK);
    return bytes;
}

CK_RV FileTokensTest::sign(CK_SESSION_HANDLE session, CK_MECHANISM mechanism, const std::string& data,
                           std::string& signature) const {
    const auto keys = find(session, CKO_PRIVATE_KEY);
    EXPECT_EQ(keys.size(), 1U);
    const CK_RV started = p11->C_SignInit(session, &mechanism, keys.at(0));
    if (started != CKR_OK) return started;
    std::string copy = data;
    signature.resize(512);
    CK_ULONG length = signature.size();
    const CK_RV result = p11->C_Sign(session, reinterpret_cast<unsigned char*>(copy.data()), copy.size(),
                                     reinterpret_cast<unsigned char*>(signature.data()), &length);
    signature.resize(result == CKR_OK ? length : 0);
    return result;
}

} // namespace Kes::test
