#include "pkcs11/key_lender.h"

#include <deque>
#include <openssl/ec.h>
#include <openssl/engine.h>
#include <openssl/rsa.h>

#include "support/core_fixture.h"
#include "support/failing_allocation.h"
#include "support/failing_openssl_allocation.h"
#include "utils/error.h"

namespace Kes::test {
namespace {

using RsaPtr = std::unique_ptr<RSA, FreeWith<&::RSA_free>>;
using EcKeyPtr = std::unique_ptr<EC_KEY, FreeWith<&::EC_KEY_free>>;
using EcMethodPtr = std::unique_ptr<EC_KEY_METHOD, FreeWith<&::EC_KEY_METHOD_free>>;
using RsaMethodPtr = std::unique_ptr<RSA_METHOD, FreeWith<&::RSA_meth_free>>;

int freed_ec_keys = 0;
int freed_rsas = 0;

/// A method that counts the freed keys, as an engine's method would notice them.
const EC_KEY_METHOD* ec_method() {
    static const EcMethodPtr method = [] {
        EcMethodPtr created(::EC_KEY_METHOD_new(::EC_KEY_OpenSSL()));
        const auto count = [](EC_KEY*) { ++freed_ec_keys; };
        ::EC_KEY_METHOD_set_init(created.get(), nullptr, count, nullptr, nullptr, nullptr, nullptr);
        return created;
    }();
    return method.get();
}

const RSA_METHOD* rsa_method() {
    static const RsaMethodPtr method = [] {
        RsaMethodPtr created(::RSA_meth_dup(::RSA_PKCS1_OpenSSL()));
        ::RSA_meth_set_finish(created.get(), [](RSA* rsa) {
            ++freed_rsas;
            return ::RSA_meth_get_finish(::RSA_PKCS1_OpenSSL())(rsa);
        });
        return created;
    }();
    return method.get();
}

EvpPkeyPtr generate_ec_key() {
    const EvpPkeyPtr generated(::EVP_EC_gen("P-256"));
    const EcKeyPtr ec(::EC_KEY_dup(::EVP_PKEY_get0_EC_KEY(generated.get())));
    ::EC_KEY_set_method(ec.get(), ec_method());
    EvpPkeyPtr key(::EVP_PKEY_new());
    ::EVP_PKEY_set1_EC_KEY(key.get(), ec.get());
    return key;
}

EvpPkeyPtr generate_rsa_key() {
    const EvpPkeyPtr generated(::EVP_RSA_gen(1024));
    const RsaPtr rsa(::EVP_PKEY_get1_RSA(generated.get()));
    ::RSA_set_method(rsa.get(), rsa_method());
    EvpPkeyPtr key(::EVP_PKEY_new());
    ::EVP_PKEY_set1_RSA(key.get(), rsa.get());
    return key;
}

constexpr const char* failure =
    "key_lender:24 Kes::KeyLender::lend(): error creating the client's private key: rc=0";

class KeyLenderTest : public CoreTest {
protected:
    KeyLenderTest() { freed_ec_keys = freed_rsas = 0; }

    void TearDown() override {
        ec.reset();
        rsa.reset();
        EXPECT_EQ(freed_ec_keys, 1); // no reference to the engine's keys is left
        EXPECT_EQ(freed_rsas, 1);
        ::ENGINE_free(key_engine);
        CoreTest::TearDown();
    }

    /// OpenSSL keeps pointers to a lender.
    static KeyLender& new_lender() {
        static auto* const lenders = new std::deque<KeyLender>;
        return lenders->emplace_back();
    }

    EvpPkeyPtr lend(const EvpPkeyPtr& key) {
        ::EVP_PKEY_up_ref(key.get());
        return lender->lend(EvpPkeyPtr(key.get()), key_engine);
    }

    ENGINE* const key_engine = ::ENGINE_by_id("dynamic");
    KeyLender* lender = &new_lender();
    EvpPkeyPtr ec = generate_ec_key();
    EvpPkeyPtr rsa = generate_rsa_key();
};

TEST_F(KeyLenderTest, LentKeyHasThePublicKeyOfTheEngineKey) {
    EXPECT_EQ(::EVP_PKEY_eq(lend(rsa).get(), rsa.get()), 1);
    EXPECT_EQ(::EVP_PKEY_eq(lend(ec).get(), ec.get()), 1);
}

TEST_F(KeyLenderTest, KeyIsCountedUntilItIsFreed) {
    for (const EvpPkeyPtr* key : {&rsa, &ec}) {
        EXPECT_FALSE(lender->has_lent_keys());
        EvpPkeyPtr first = lend(*key);
        const EvpPkeyPtr second = lend(*key);
        first.reset();
        EXPECT_TRUE(lender->has_lent_keys());
    }
    EXPECT_FALSE(lender->has_lent_keys());
}

TEST_F(KeyLenderTest, ExtractedRsaIsCounted) {
    RsaPtr extracted(::EVP_PKEY_get1_RSA(lend(rsa).get()));
    EXPECT_TRUE(lender->has_lent_keys());
    extracted.reset();
    EXPECT_FALSE(lender->has_lent_keys());
}

TEST_F(KeyLenderTest, ExtractedEcKeyIsCounted) {
    EcKeyPtr extracted(::EVP_PKEY_get1_EC_KEY(lend(ec).get()));
    EXPECT_TRUE(lender->has_lent_keys());
    extracted.reset();
    EXPECT_FALSE(lender->has_lent_keys());
}

TEST_F(KeyLenderTest, DuplicatesOfAnEcKeyAreCounted) {
    EvpPkeyPtr key = lend(ec);
    EvpPkeyPtr duplicate(::EVP_PKEY_dup(key.get()));
    EcKeyPtr second_duplicate(::EC_KEY_dup(::EVP_PKEY_get0_EC_KEY(key.get())));
    ASSERT_NE(duplicate, nullptr);
    ASSERT_NE(second_duplicate, nullptr);
    key.reset();
    EXPECT_TRUE(lender->has_lent_keys());
    duplicate.reset();
    EXPECT_TRUE(lender->has_lent_keys());
    second_duplicate.reset();
    EXPECT_FALSE(lender->has_lent_keys());
}

TEST_F(KeyLenderTest, MethodOfTheEngineDoesNotNoticeFreedLentKeys) {
    const EvpPkeyPtr lent_ec = lend(ec);
    EcKeyPtr(::EC_KEY_dup(::EVP_PKEY_get0_EC_KEY(lent_ec.get()))).reset();
    lend(ec).reset();
    lend(rsa).reset();
    EXPECT_EQ(freed_ec_keys, 0);
    EXPECT_EQ(freed_rsas, 0);
}

TEST_F(KeyLenderTest, LentKeyHoldsTheEngineKey) {
    EvpPkeyPtr lent_ec = lend(ec);
    EvpPkeyPtr lent_rsa = lend(rsa);
    ec.reset();
    rsa.reset();
    EXPECT_EQ(freed_ec_keys + freed_rsas, 0);
    lent_ec.reset();
    lent_rsa.reset();
    EXPECT_EQ(freed_ec_keys + freed_rsas, 2);
}

TEST_F(KeyLenderTest, LentKeyHasTheDataThatTheLibraryOfTheEngineHasAttached) {
    int object = 0;
    const int rsa_index = CRYPTO_get_ex_new_index(CRYPTO_EX_INDEX_RSA, 0, nullptr, nullptr, nullptr, nullptr);
    const int ec_index =
        CRYPTO_get_ex_new_index(CRYPTO_EX_INDEX_EC_KEY, 0, nullptr, nullptr, nullptr, nullptr);
    const RsaPtr engine_rsa(::EVP_PKEY_get1_RSA(rsa.get()));
    const EcKeyPtr engine_ec(::EVP_PKEY_get1_EC_KEY(ec.get()));
    ::RSA_set_ex_data(engine_rsa.get(), rsa_index, &object);
    ::EC_KEY_set_ex_data(engine_ec.get(), ec_index, &object);
    EXPECT_EQ(::RSA_get_ex_data(::EVP_PKEY_get0_RSA(lend(rsa).get()), rsa_index), &object);
    EXPECT_EQ(::EC_KEY_get_ex_data(::EVP_PKEY_get0_EC_KEY(lend(ec).get()), ec_index), &object);
}

TEST_F(KeyLenderTest, DataThatOtherCodeAttachesToEveryKeyIsNotReplaced) {
    static int attached = 0;
    const auto attach = [](void*, void*, CRYPTO_EX_DATA* data, int index, long, void*) {
        ::CRYPTO_set_ex_data(data, index, &attached);
    };
    const int index = CRYPTO_get_ex_new_index(CRYPTO_EX_INDEX_EC_KEY, 0, nullptr, attach, nullptr, nullptr);
    int object = 0;
    const EcKeyPtr engine_ec(::EVP_PKEY_get1_EC_KEY(ec.get()));
    ::EC_KEY_set_ex_data(engine_ec.get(), index, &object);
    EXPECT_EQ(::EC_KEY_get_ex_data(::EVP_PKEY_get0_EC_KEY(lend(ec).get()), index), &attached);
}

TEST_F(KeyLenderTest, KeyForWhichTheEngineHasNoMethodIsNotLent) {
    engine().refuses_key_engine = true;
    for (const EvpPkeyPtr* key : {&rsa, &ec}) {
        EXPECT_EQ(masked_errors(error_text([&] { lend(*key); })),
                  std::string(failure) + "\nerror:lib:reason(160):no such method");
        EXPECT_FALSE(lender->has_lent_keys());
    }
}

TEST_F(KeyLenderTest, KeyOfAnotherTypeIsReturnedAsItIsAndNotCounted) {
    const EvpPkeyPtr other(::EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"));
    EXPECT_FALSE(lender->has_lent_uncounted_key());
    EXPECT_EQ(lend(other), other);
    EXPECT_TRUE(lender->has_lent_uncounted_key());
    EXPECT_TRUE(lender->has_lent_keys());
}

TEST_F(KeyLenderTest, KeyIsNotLentAndNotCountedWhenAnAllocationOfOpensslFails) {
    for (const EvpPkeyPtr* key : {&rsa, &ec}) {
        EvpPkeyPtr lent;
        std::string error;
        const std::size_t failures = for_each_failing_allocation<FailingOpensslAllocation>(
            [&] {
                lender = &new_lender(); // each creates a method and an index
                error.clear();
                try {
                    lent = lend(*key);
                } catch (const OsslError& caught) {
                    error = caught.what();
                }
            },
            [&](bool has_failed) {
                // OpenSSL handles some failures itself.
                EXPECT_NE(lent == nullptr, error.empty());
                EXPECT_EQ(lent != nullptr, lender->has_lent_keys());
                EXPECT_TRUE(error.empty() || error.rfind(failure, 0) == 0) << error;
                EXPECT_TRUE(has_failed || lent != nullptr);
                lent.reset();
                EXPECT_FALSE(lender->has_lent_keys());
            });
        EXPECT_GE(failures, 10U);
    }
}

} // namespace
} // namespace Kes::test
