// Copies of the loaded key, and the RSA and EC_KEY objects that a client extracts from it.
#include <gtest/gtest.h>
#include <openssl/ec.h>
#include <openssl/rsa.h>

#include "token_client.h"
#include "utils/ossl_ptr.h"

namespace Kes::test {
namespace {

using RsaPtr = std::unique_ptr<RSA, FreeWith<&::RSA_free>>;
using EcKeyPtr = std::unique_ptr<EC_KEY, FreeWith<&::EC_KEY_free>>;

constexpr const char* rsa_id = "%01"; // on the token "two"
constexpr const char* ec_id = "%02";

RsaPtr extract_rsa(const Client& client) { return RsaPtr(::EVP_PKEY_get1_RSA(client.key())); }

EcKeyPtr extract_ec_key(const Client& client) { return EcKeyPtr(::EVP_PKEY_get1_EC_KEY(client.key())); }

bool can_sign(EC_KEY* key) {
    const unsigned char digest[32] = {1};
    const std::unique_ptr<ECDSA_SIG, FreeWith<&::ECDSA_SIG_free>> signature(
        ::ECDSA_do_sign(digest, sizeof digest, key));
    return signature && ::ECDSA_do_verify(digest, sizeof digest, signature.get(), key) == 1;
}

void load(Client& client, const char* id) {
    ASSERT_TRUE(client.discover()) << client.error();
    ASSERT_TRUE(client.load(id)) << client.error();
}

class KeyCopyTest : public testing::Test {
protected:
    /// Loads each key in a lifetime of its own, and signs with it.
    static void expect_later_lifetimes_to_work() {
        for (const char* id : {rsa_id, ec_id}) {
            Client client;
            load(client, id);
            EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
        }
    }

    /// Loads the key in a lifetime that ends, and returns a part of the key that the client has kept.
    template <typename Part>
    static Part keep_part(const char* id, Part (*extract)(const Client&)) {
        Client client;
        load(client, id);
        Part part = extract(client);
        EXPECT_NE(part, nullptr);
        return part;
    }

    template <typename Part>
    static void expect_part_can_outlive_destroy(const char* id, Part (*extract)(const Client&)) {
        keep_part(id, extract).reset();
        expect_later_lifetimes_to_work();
    }

    /// The same, but frees the part only after a load of the next lifetime was refused.
    template <typename Part>
    static void expect_held_part_to_postpone_the_load(const char* id, Part (*extract)(const Client&)) {
        Part part = keep_part(id, extract);
        {
            Client client;
            ASSERT_TRUE(client.discover()) << client.error();
            EXPECT_FALSE(client.load(id));
            EXPECT_EQ(client.masked_error(),
                      "ossl_engine_pkcs11:104 Kes::Pkcs11OsslEngine::Pkcs11OsslEngine(): "
                      "ENGINE_ctrl_cmd_string(LOAD) failed: rc=0\n"
                      "error:engine routines:init failed:\n"
                      "error:engine routines:operation fail:the engine cannot be loaded again: the client "
                      "still uses "
                      "a private key of an earlier load");
        }
        part.reset();
        expect_later_lifetimes_to_work();
    }

    const SoftToken token{"two"};
};

TEST_F(KeyCopyTest, DuplicatesOfAnEcKeyCanBeFreedBeforeTheKey) {
    for (int i = 0; i < 3; ++i) {
        Client client;
        load(client, ec_id);
        for (const bool is_evp : {true, false}) {
            if (is_evp)
                ASSERT_NE(EvpPkeyPtr(::EVP_PKEY_dup(client.key())), nullptr);
            else
                ASSERT_NE(EcKeyPtr(::EC_KEY_dup(extract_ec_key(client).get())), nullptr);
            EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
        }
    }
    expect_later_lifetimes_to_work();
}

TEST_F(KeyCopyTest, DuplicateOfAnEcKeySignsAfterTheUnload) {
    Client client;
    load(client, ec_id);
    const EcKeyPtr duplicate(::EC_KEY_dup(extract_ec_key(client).get()));
    ASSERT_EQ(client->ossl_unload(), 0);
    EXPECT_TRUE(can_sign(duplicate.get()));
}

TEST_F(KeyCopyTest, DuplicateOfAnEcKeyCanOutliveDestroy) {
    expect_part_can_outlive_destroy<EvpPkeyPtr>(
        ec_id, [](const Client& client) { return EvpPkeyPtr(::EVP_PKEY_dup(client.key())); });
    expect_part_can_outlive_destroy<EcKeyPtr>(
        ec_id, [](const Client& client) { return EcKeyPtr(::EC_KEY_dup(extract_ec_key(client).get())); });
}

TEST_F(KeyCopyTest, ExtractedRsaCanOutliveDestroy) { expect_part_can_outlive_destroy(rsa_id, extract_rsa); }

TEST_F(KeyCopyTest, ExtractedEcKeyCanOutliveDestroy) {
    expect_part_can_outlive_destroy(ec_id, extract_ec_key);
}

TEST_F(KeyCopyTest, ExtractedRsaPostponesTheNextLoad) {
    expect_held_part_to_postpone_the_load(rsa_id, extract_rsa);
}

TEST_F(KeyCopyTest, ExtractedEcKeyPostponesTheNextLoad) {
    expect_held_part_to_postpone_the_load(ec_id, extract_ec_key);
}

TEST_F(KeyCopyTest, RsaKeyCannotBeDuplicated) { // OpenSSL duplicates only RSA keys with its own method
    Client client;
    load(client, rsa_id);
    EXPECT_EQ(EvpPkeyPtr(::EVP_PKEY_dup(client.key())), nullptr);
    EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
}

} // namespace
} // namespace Kes::test
