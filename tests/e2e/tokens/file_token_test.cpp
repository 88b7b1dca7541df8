// The library with the module that serves tokens from files.
#include <gtest/gtest.h>

#include "support/file_tokens.h"
#include "token_client.h"

namespace Kes::test {
namespace {

class FileTokenTest : public ::testing::Test {
protected:
    FileTokenTest() {
        token.add("01", "ckp", "rsa", "RSA key");
        token.add("02", "ckp", "ec", "EC key");
        client.cfg->set_pkcs11_module_dll(FileTokens::module().c_str());
    }

    FileTokens tokens;
    FileToken token = tokens.add_token("reader 1");
    Client client;
};

TEST_F(FileTokenTest, KeysAreFoundWithTheRightPin) {
    ASSERT_TRUE(client.discover(file_token_pin)) << client.error();
    EXPECT_EQ(client.key_names(), (Lines{"Card 1: EC key", "Card 1: RSA key"}));
}

TEST_F(FileTokenTest, RsaKeySignsByEveryMethod) {
    ASSERT_TRUE(client.discover(file_token_pin) && client.load("%01")) << client.error();
    EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
}

TEST_F(FileTokenTest, EcKeySignsByEveryMethod) {
    ASSERT_TRUE(client.discover(file_token_pin) && client.load("%02")) << client.error();
    EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
}

TEST_F(FileTokenTest, KeySignsAlsoWithoutPublicKeyObjects) {
    FileToken other = tokens.add_token("reader 0");
    other.add("03", "ck", "ec", "Without public key");
    ASSERT_TRUE(client.discover(file_token_pin) && client.load("%03")) << client.error();
    EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
}

TEST_F(FileTokenTest, WrongPinIsIncorrect) {
    EXPECT_FALSE(client.discover("1"));
    EXPECT_NE(client.error().find("PIN incorrect"), std::string::npos) << client.error();
}

TEST_F(FileTokenTest, LockedTokenRefusesTheLogin) {
    token.set("pin_locked", "1");
    EXPECT_FALSE(client.discover(file_token_pin));
    EXPECT_NE(client.error().find("PIN locked"), std::string::npos) << client.error();
}

TEST_F(FileTokenTest, ReaderWithPinPadNeedsNoPin) {
    token.set("pin_pad", "1");
    ASSERT_TRUE(client.read()) << client.error();
    EXPECT_FALSE(client->is_pin_required());
    EXPECT_EQ(client->discover_keys(&client.num_keys), 0) << client.error();
    EXPECT_EQ(client.num_keys, 0U); // no PIN was entered on the pad
    EXPECT_EQ(as_text(tokens.calls()).find("C_Login"), std::string::npos);
}

TEST_F(FileTokenTest, EmptyReaderIsPassedOver) {
    tokens.add_empty_reader("reader 0");
    ASSERT_TRUE(client.discover(file_token_pin)) << client.error();
    EXPECT_EQ(client.num_keys, 2U);
}

TEST_F(FileTokenTest, RemovedCardFailsTheSignature) {
    ASSERT_TRUE(client.discover(file_token_pin) && client.load("%01")) << client.error();
    token.remove();
    EXPECT_NE(signing_problem(client.key(), client.certificate(), pkcs1), "");
}

TEST_F(FileTokenTest, PlannedFailureReachesTheLibrary) {
    ASSERT_TRUE(client.read());
    ASSERT_EQ(client->set_pin(file_token_pin), 0);
    tokens.fail({"C_Login#1=0x32"});
    EXPECT_NE(client->discover_keys(&client.num_keys), 0);
    EXPECT_NE(client.error().find("Device removed"), std::string::npos) << client.error();
}

} // namespace
} // namespace Kes::test
