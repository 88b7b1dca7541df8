// Tests of objects, their attributes and signatures.
#include <algorithm>
#include <fstream>
#include <numeric>
#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include "module_client.h"
#include "support/certificates.h"
#include "utils/ossl_ptr.h"

namespace Kes::test {
namespace {

using ContextPtr = std::unique_ptr<EVP_PKEY_CTX, FreeWith<&::EVP_PKEY_CTX_free>>;

class FileTokensObjectTest : public FileTokensTest {
protected:
    /// Opens a session and logs in.
    CK_SESSION_HANDLE open_for_user() {
        const CK_SESSION_HANDLE session = open();
        EXPECT_EQ(log_in(session, file_token_pin), CKR_OK);
        return session;
    }

    X509Ptr certificate(const std::string& file) const {
        const BioPtr pem(::BIO_new_file((token.folder() / (file + ".crt")).c_str(), "rb"));
        return X509Ptr(::PEM_read_bio_X509(pem.get(), nullptr, nullptr, nullptr));
    }

    /// Whether OpenSSL accepts the signature of the data, which is not hashed.
    /// @param padding  0 for a key without padding
    bool verifies(const std::string& file, int padding, const std::string& data,
                  const std::string& signature) const {
        const X509Ptr owner = certificate(file);
        const ContextPtr operation(::EVP_PKEY_CTX_new(::X509_get0_pubkey(owner.get()), nullptr));
        ::EVP_PKEY_verify_init(operation.get());
        if (padding != 0) ::EVP_PKEY_CTX_set_rsa_padding(operation.get(), padding);
        if (padding == RSA_PKCS1_PSS_PADDING)
            ::EVP_PKEY_CTX_set_signature_md(operation.get(), ::EVP_sha256());
        return ::EVP_PKEY_verify(operation.get(), bytes(signature), signature.size(), bytes(data),
                                 data.size()) == 1;
    }

    static const unsigned char* bytes(const std::string& text) {
        return reinterpret_cast<const unsigned char*>(text.data());
    }
};

const std::string digest(32, 'd');

/// OpenSSL's form of a signature that consists of two numbers.
std::string as_sequence(const std::string& numbers) {
    const auto* first = reinterpret_cast<const unsigned char*>(numbers.data());
    const int half = static_cast<int>(numbers.size() / 2);
    const std::unique_ptr<ECDSA_SIG, FreeWith<&::ECDSA_SIG_free>> signature(::ECDSA_SIG_new());
    ::ECDSA_SIG_set0(signature.get(), ::BN_bin2bn(first, half, nullptr),
                     ::BN_bin2bn(first + half, half, nullptr));
    std::string der(static_cast<std::size_t>(::i2d_ECDSA_SIG(signature.get(), nullptr)), '\0');
    auto* next = reinterpret_cast<unsigned char*>(der.data());
    ::i2d_ECDSA_SIG(signature.get(), &next);
    return der;
}

TEST_F(FileTokensObjectTest, ObjectsHaveTheAttributesOfTheirLines) {
    token.add("01a0", "c", "rsa", "My label");
    const CK_SESSION_HANDLE session = open();
    const auto found = find(session, CKO_CERTIFICATE);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(value(session, found[0], CKA_ID), "\x01\xa0");
    EXPECT_EQ(value(session, found[0], CKA_LABEL), "My label");
    EXPECT_EQ(value(session, found[0], CKA_PRIVATE), std::string(1, '\0'));
    const Bytes der = der_of(certificate("rsa").get());
    EXPECT_EQ(value(session, found[0], CKA_VALUE), std::string(der.begin(), der.end()));
    EXPECT_NE(value(session, found[0], CKA_SUBJECT).find("Rita RSA"), std::string::npos);
    EXPECT_NE(value(session, found[0], CKA_ISSUER).find("Test CA"), std::string::npos);
    EXPECT_EQ(value(session, found[0], CKA_SERIAL_NUMBER).substr(0, 1), "\x02");
}

TEST_F(FileTokensObjectTest, IdMayBeEmpty) {
    token.add("", "c", "rsa", "No id");
    const CK_SESSION_HANDLE session = open();
    EXPECT_EQ(value(session, find(session).at(0), CKA_ID), "");
}

TEST_F(FileTokensObjectTest, CertificateThatCannotBeDecodedIsServedAsItIs) {
    std::ofstream(token.folder() / "broken.der") << "no certificate";
    std::ofstream(token.folder() / "objects") << "01=c broken Broken\n";
    const CK_SESSION_HANDLE session = open();
    const auto found = find(session, CKO_CERTIFICATE);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(value(session, found[0], CKA_VALUE), "no certificate");
}

TEST_F(FileTokensObjectTest, PrivateObjectsAppearWithTheLogin) {
    token.add("01", "ckp", "rsa", "Hidden key");
    token.add("02", "CK", "ec", "Hidden certificate");
    const CK_SESSION_HANDLE session = open();
    EXPECT_EQ(find(session).size(), 3U); // c, p and K
    const auto keys = find(session, CKO_PRIVATE_KEY);
    ASSERT_EQ(keys.size(), 1U);
    EXPECT_EQ(value(session, keys[0], CKA_ID), "\x02");
    EXPECT_EQ(log_in(session, file_token_pin), CKR_OK);
    const auto all = find(session);
    EXPECT_EQ(all.size(), 5U);
    const auto hidden = find(session, CKO_CERTIFICATE);
    ASSERT_EQ(hidden.size(), 2U);
    EXPECT_EQ(p11->C_Logout(session), CKR_OK);
    CK_ATTRIBUTE entry{CKA_ID, nullptr, 0};
    EXPECT_EQ(p11->C_GetAttributeValue(session, hidden[1], &entry, 1), CKR_OBJECT_HANDLE_INVALID);
}

TEST_F(FileTokensObjectTest, TokenWithoutLoginHidesNothing) {
    token.set("login_required", "0");
    token.add("01", "ckp", "rsa", "Key");
    EXPECT_EQ(find(open()).size(), 3U);
}

TEST_F(FileTokensObjectTest, ObjectsAreFoundByAllGivenAttributes) {
    token.add("01", "cp", "rsa", "One");
    token.add("02", "cp", "ec", "Two");
    const CK_SESSION_HANDLE session = open();
    std::string id = "\x02";
    CK_OBJECT_CLASS type = CKO_CERTIFICATE;
    const std::vector<CK_ATTRIBUTE> both{{CKA_ID, id.data(), 1}, {CKA_CLASS, &type, sizeof type}};
    const auto found = find(session, both);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(value(session, found[0], CKA_LABEL), "Two");
    id = "\x03";
    EXPECT_EQ(find(session, both).size(), 0U);
}

TEST_F(FileTokensObjectTest, SearchesMustBeStartedAndEnded) {
    const CK_SESSION_HANDLE session = open();
    CK_OBJECT_HANDLE object = 0;
    CK_ULONG count = 0;
    EXPECT_EQ(p11->C_FindObjects(session, &object, 1, &count), CKR_OPERATION_NOT_INITIALIZED);
    EXPECT_EQ(p11->C_FindObjectsFinal(session), CKR_OPERATION_NOT_INITIALIZED);
    EXPECT_EQ(p11->C_FindObjectsInit(session, nullptr, 0), CKR_OK);
    EXPECT_EQ(p11->C_FindObjectsInit(session, nullptr, 0), CKR_OPERATION_ACTIVE);
    EXPECT_EQ(p11->C_FindObjectsFinal(session), CKR_OK);
    EXPECT_EQ(p11->C_FindObjectsInit(session, nullptr, 1), CKR_ARGUMENTS_BAD);
}

TEST_F(FileTokensObjectTest, PartsOfAPrivateKeyCannotBeRead) {
    token.add("01", "K", "rsa", "Key");
    const CK_SESSION_HANDLE session = open();
    const CK_OBJECT_HANDLE key = find(session).at(0);
    for (const CK_ATTRIBUTE_TYPE type : {CKA_PRIVATE_EXPONENT, CKA_PRIME_1, CKA_COEFFICIENT, CKA_VALUE}) {
        CK_ATTRIBUTE entry{type, nullptr, 0};
        EXPECT_EQ(p11->C_GetAttributeValue(session, key, &entry, 1), CKR_ATTRIBUTE_SENSITIVE);
        EXPECT_EQ(entry.ulValueLen, CK_UNAVAILABLE_INFORMATION);
    }
    CK_ATTRIBUTE unknown{CKA_OBJECT_ID, nullptr, 0};
    EXPECT_EQ(p11->C_GetAttributeValue(session, key, &unknown, 1), CKR_ATTRIBUTE_TYPE_INVALID);
}

TEST_F(FileTokensObjectTest, ReadingContinuesAfterAnAttributeThatDoesNotFit) {
    token.add("01", "c", "rsa", "Label");
    const CK_SESSION_HANDLE session = open();
    const CK_OBJECT_HANDLE object = find(session).at(0);
    char id = 0;
    char label[2]{};
    std::vector<CK_ATTRIBUTE> entries{{CKA_LABEL, label, sizeof label}, {CKA_ID, &id, 1}};
    EXPECT_EQ(p11->C_GetAttributeValue(session, object, entries.data(), 2), CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(entries[0].ulValueLen, CK_UNAVAILABLE_INFORMATION);
    EXPECT_EQ(id, 1);
}

TEST_F(FileTokensObjectTest, MissingFilesAndUnknownKindsFailTheSession) {
    open();
    p11->C_CloseAllSessions(0);
    CK_SESSION_HANDLE session = 0;
    for (const char* line :
         {"01=c absent Label", "01=k absent Label", "01=p absent Label", "01=x rsa Label"}) {
        std::ofstream(token.folder() / "objects") << line << '\n';
        EXPECT_EQ(p11->C_OpenSession(0, CKF_SERIAL_SESSION, nullptr, nullptr, &session), CKR_DEVICE_ERROR)
            << line;
    }
}

TEST_F(FileTokensObjectTest, PublicKeyOfACertificateNeedsNoKeyFile) {
    token.add("01", "p", "rsa", "From the key");
    std::filesystem::remove(token.folder() / "rsa.key");
    const CK_SESSION_HANDLE session = open();
    EXPECT_EQ(value(session, find(session).at(0), CKA_MODULUS).size(), 256U);
}

TEST_F(FileTokensObjectTest, ObjectsAreReadAgainWhenNoSessionIsOpen) {
    token.add("01", "c", "rsa", "One");
    const CK_SESSION_HANDLE session = open();
    token.add("02", "c", "ec", "Two");
    EXPECT_EQ(find(session).size(), 1U);
    p11->C_CloseSession(session);
    EXPECT_EQ(find(open()).size(), 2U);
}

TEST_F(FileTokensObjectTest, RsaKeySignsWithPkcs1Padding) {
    token.add("01", "k", "rsa", "Key");
    std::string signature;
    EXPECT_EQ(sign(open_for_user(), {CKM_RSA_PKCS, nullptr, 0}, digest, signature), CKR_OK);
    EXPECT_TRUE(verifies("rsa", RSA_PKCS1_PADDING, digest, signature));
    EXPECT_FALSE(verifies("rsa", RSA_PKCS1_PADDING, std::string(32, 'e'), signature));
}

TEST_F(FileTokensObjectTest, RsaKeySignsWithPssPadding) {
    token.add("01", "k", "rsa", "Key");
    CK_RSA_PKCS_PSS_PARAMS pss{CKM_SHA256, CKG_MGF1_SHA256, 32};
    const CK_SESSION_HANDLE session = open_for_user();
    std::string signature;
    EXPECT_EQ(sign(session, {CKM_RSA_PKCS_PSS, &pss, sizeof pss}, digest, signature), CKR_OK);
    EXPECT_TRUE(verifies("rsa", RSA_PKCS1_PSS_PADDING, digest, signature));
    EXPECT_EQ(sign(session, {CKM_RSA_PKCS_PSS, &pss, sizeof pss}, "short", signature), CKR_DATA_LEN_RANGE);
    EXPECT_EQ(sign(session, {CKM_RSA_PKCS_PSS, nullptr, 0}, digest, signature), CKR_MECHANISM_PARAM_INVALID);
    pss.mgf = CKG_MGF1_SHA1;
    EXPECT_EQ(sign(session, {CKM_RSA_PKCS_PSS, &pss, sizeof pss}, digest, signature),
              CKR_MECHANISM_PARAM_INVALID);
}

TEST_F(FileTokensObjectTest, RsaKeySignsNumbers) {
    token.add("01", "k", "rsa", "Key");
    const CK_SESSION_HANDLE session = open_for_user();
    std::string signature;
    EXPECT_EQ(sign(session, {CKM_RSA_X_509, nullptr, 0}, digest, signature), CKR_OK);
    EXPECT_TRUE(verifies("rsa", RSA_NO_PADDING, std::string(256 - 32, '\0') + digest, signature));
    EXPECT_EQ(sign(session, {CKM_RSA_X_509, nullptr, 0}, std::string(257, 'd'), signature),
              CKR_DATA_LEN_RANGE);
}

TEST_F(FileTokensObjectTest, EcKeySignsWithTwoNumbers) {
    token.add("01", "k", "ec", "Key");
    std::string signature;
    EXPECT_EQ(sign(open_for_user(), {CKM_ECDSA, nullptr, 0}, digest, signature), CKR_OK);
    EXPECT_EQ(signature.size(), 64U);
    EXPECT_TRUE(verifies("ec", 0, digest, as_sequence(signature)));
}

TEST_F(FileTokensObjectTest, EcKeyHasCurveAndPoint) {
    token.add("01", "p", "ec", "Key");
    const CK_SESSION_HANDLE session = open();
    const CK_OBJECT_HANDLE key = find(session).at(0);
    EXPECT_EQ(value(session, key, CKA_EC_PARAMS), "\x06\x08\x2a\x86\x48\xce\x3d\x03\x01\x07");
    EXPECT_EQ(value(session, key, CKA_EC_POINT).substr(0, 3), "\x04\x41\x04");
}

TEST_F(FileTokensObjectTest, KeysSignOnlyByMechanismsOfTheirTypeAndToken) {
    token.add("01", "k", "rsa", "Key");
    const CK_SESSION_HANDLE session = open_for_user();
    std::string signature;
    EXPECT_EQ(sign(session, {CKM_ECDSA, nullptr, 0}, digest, signature), CKR_KEY_TYPE_INCONSISTENT);
    EXPECT_EQ(sign(session, {CKM_SHA256_RSA_PKCS, nullptr, 0}, digest, signature), CKR_MECHANISM_INVALID);
    token.set("mechanisms", "rsa_pss");
    EXPECT_EQ(sign(session, {CKM_RSA_PKCS, nullptr, 0}, digest, signature), CKR_MECHANISM_INVALID);
}

TEST_F(FileTokensObjectTest, OnlyPrivateKeysSign) {
    token.add("01", "c", "rsa", "Certificate");
    const CK_SESSION_HANDLE session = open();
    CK_MECHANISM mechanism{CKM_RSA_PKCS, nullptr, 0};
    EXPECT_EQ(p11->C_SignInit(session, &mechanism, find(session).at(0)), CKR_KEY_FUNCTION_NOT_PERMITTED);
    EXPECT_EQ(p11->C_SignInit(session, &mechanism, 0), CKR_KEY_HANDLE_INVALID);
}

TEST_F(FileTokensObjectTest, SigningGoesOnAfterALengthOrAShortBuffer) {
    token.add("01", "K", "rsa", "Key");
    const CK_SESSION_HANDLE session = open();
    CK_MECHANISM mechanism{CKM_RSA_PKCS, nullptr, 0};
    ASSERT_EQ(p11->C_SignInit(session, &mechanism, find(session).at(0)), CKR_OK);
    EXPECT_EQ(p11->C_SignInit(session, &mechanism, find(session).at(0)), CKR_OPERATION_ACTIVE);
    std::vector<unsigned char> data(32), signature(256);
    CK_ULONG length = 0;
    EXPECT_EQ(p11->C_Sign(session, data.data(), data.size(), nullptr, &length), CKR_OK);
    EXPECT_EQ(length, 256U);
    length = 255;
    EXPECT_EQ(p11->C_Sign(session, data.data(), data.size(), signature.data(), &length),
              CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(p11->C_Sign(session, data.data(), data.size(), signature.data(), &length), CKR_OK);
    EXPECT_EQ(p11->C_Sign(session, data.data(), data.size(), signature.data(), &length),
              CKR_OPERATION_NOT_INITIALIZED);
}

TEST_F(FileTokensObjectTest, SignatureNeedsTheLoginToLast) {
    token.add("01", "k", "rsa", "Key");
    const CK_SESSION_HANDLE session = open_for_user();
    CK_MECHANISM mechanism{CKM_RSA_PKCS, nullptr, 0};
    ASSERT_EQ(p11->C_SignInit(session, &mechanism, find(session).at(0)), CKR_OK);
    EXPECT_EQ(p11->C_Logout(session), CKR_OK);
    std::vector<unsigned char> data(32), signature(256);
    CK_ULONG length = signature.size();
    EXPECT_EQ(p11->C_Sign(session, data.data(), data.size(), signature.data(), &length),
              CKR_USER_NOT_LOGGED_IN);
}

} // namespace
} // namespace Kes::test
