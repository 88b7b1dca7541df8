// Tests that the test doubles report each wrong use, because the tests of the pkcs11 back-end rely on it.
#include <gtest/gtest.h>
#include <libp11.h>
#include <openssl/engine.h>

#include "support/test_card.h"
#include "utils/ossl_ptr.h"
#include "utils/windows_api.h"

namespace Kes::test {
namespace {

const std::filesystem::path doubles = MARVO_DOUBLES_DIR;

/// A function of a DLL, converted to the type of the variable that it initialises.
struct Entry {
    HMODULE library;
    const char* name;

    template <typename Function>
    operator Function*() const {
        return reinterpret_cast<Function*>(reinterpret_cast<void*>(::GetProcAddress(library, name)));
    }
};

class Libp11DoubleTest : public ::testing::Test {
protected:
    Libp11DoubleTest() { card.add("01", "ckp", "rsa", "Login"); }

    /// Creates a context, loads the module and enumerates the slots.
    void enumerate() {
        context = ctx_new();
        ASSERT_EQ(ctx_load(context, "itp11.dll"), 0);
        ASSERT_EQ(enumerate_slots(context, &slots, &count), 0);
    }

    TestCard card;
    const CurrentFolder current{doubles};
    const HMODULE library = ::LoadLibraryA((doubles / "libp11.dll").string().c_str());
    decltype(&::PKCS11_CTX_free) const ctx_free = Entry{library, "PKCS11_CTX_free"};
    decltype(&::PKCS11_CTX_load) const ctx_load = Entry{library, "PKCS11_CTX_load"};
    decltype(&::PKCS11_CTX_new) const ctx_new = Entry{library, "PKCS11_CTX_new"};
    decltype(&::PKCS11_CTX_unload) const ctx_unload = Entry{library, "PKCS11_CTX_unload"};
    decltype(&::PKCS11_enumerate_certs) const enumerate_certs = Entry{library, "PKCS11_enumerate_certs"};
    decltype(&::PKCS11_enumerate_keys) const enumerate_keys = Entry{library, "PKCS11_enumerate_keys"};
    decltype(&::PKCS11_enumerate_slots) const enumerate_slots = Entry{library, "PKCS11_enumerate_slots"};
    decltype(&::PKCS11_is_logged_in) const is_logged_in = Entry{library, "PKCS11_is_logged_in"};
    decltype(&::PKCS11_login) const login = Entry{library, "PKCS11_login"};
    decltype(&::PKCS11_release_all_slots) const release_all_slots =
        Entry{library, "PKCS11_release_all_slots"};
    PKCS11_CTX* context = nullptr;
    PKCS11_SLOT* slots = nullptr;
    unsigned int count = 0;
};

TEST_F(Libp11DoubleTest, EnumeratingSlotsWithoutModuleIsViolation) {
    context = ctx_new();
    EXPECT_EQ(enumerate_slots(context, &slots, &count), -1);
    EXPECT_EQ(card.violations(), Lines{"PKCS11_enumerate_slots: no module is loaded"});
    EXPECT_EQ(card.unbalanced(), Lines{"ctx1: 1"});
}

TEST_F(Libp11DoubleTest, ReleasingSlotsTwiceIsViolation) {
    enumerate();
    release_all_slots(context, slots, count);
    EXPECT_EQ(card.violations(), Lines());
    release_all_slots(context, slots, count);
    EXPECT_EQ(card.violations(), Lines{"PKCS11_release_all_slots: no such slot"});
}

TEST_F(Libp11DoubleTest, ReleasingSlotsWithWrongCountIsViolation) {
    enumerate();
    release_all_slots(context, slots, 2);
    EXPECT_EQ(card.violations(), Lines{"PKCS11_release_all_slots: wrong context or count"});
}

TEST_F(Libp11DoubleTest, SecondTokenIsInAReaderOfItsOwn) {
    card.set("second_label", "Card 2");
    card.set("pin_locked", "1");
    enumerate();
    ASSERT_EQ(count, 2U);
    EXPECT_STREQ(slots[1].description, "Slot 2");
    EXPECT_STREQ(slots[1].token->label, "Card 2");
    EXPECT_EQ(slots[1].token->userPinLocked, 1);
    release_all_slots(context, slots, count);
    EXPECT_EQ(card.violations(), Lines());
}

TEST_F(Libp11DoubleTest, LoginWithoutSlotIsViolation) {
    enumerate();
    EXPECT_EQ(login(nullptr, 0, card_pin), -1);
    EXPECT_EQ(card.violations(), Lines{"PKCS11_login: no such slot"});
}

TEST_F(Libp11DoubleTest, UsingTokenOfReleasedSlotsIsViolation) {
    enumerate();
    PKCS11_TOKEN* token = slots->token;
    PKCS11_CERT* certs = nullptr;
    EXPECT_EQ(enumerate_certs(token, &certs, &count), 0);
    EXPECT_EQ(count, 1U);
    release_all_slots(context, slots, 1);
    EXPECT_EQ(enumerate_certs(token, &certs, &count), -1);
    EXPECT_EQ(card.violations(), Lines{"PKCS11_enumerate_certs: no such token"});
}

TEST_F(Libp11DoubleTest, UsingSlotsAfterUnloadingModuleIsViolation) {
    enumerate();
    ctx_unload(context);
    int state = 0;
    EXPECT_EQ(is_logged_in(slots, 0, &state), -1);
    ctx_unload(context);
    EXPECT_EQ(card.violations(),
              (Lines{"PKCS11_is_logged_in: no such slot", "PKCS11_CTX_unload: no module is loaded"}));
}

TEST_F(Libp11DoubleTest, FreeingContextBeforeModuleOrTwiceIsViolation) {
    enumerate();
    ctx_free(context);
    ctx_free(context);
    EXPECT_EQ(card.violations(),
              (Lines{"PKCS11_CTX_free: the module is still loaded", "PKCS11_CTX_free: no such context"}));
}

TEST_F(Libp11DoubleTest, PrivateKeysAreListedOnlyAfterLogin) {
    enumerate();
    PKCS11_KEY* keys = nullptr;
    ASSERT_EQ(enumerate_keys(slots->token, &keys, &count), 0);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(login(slots, 0, "1"), -1);
    EXPECT_EQ(login(slots, 0, card_pin), 0);
    ASSERT_EQ(enumerate_keys(slots->token, &keys, &count), 0);
    ASSERT_EQ(count, 1U);
    EXPECT_STREQ(keys->label, "Login");
    EXPECT_EQ(keys->id_len, 1U);
    EXPECT_EQ(card.violations(), Lines());
}

using EnginePtr = std::unique_ptr<ENGINE, FreeWith<&::ENGINE_free>>;

class EngineDoubleTest : public Libp11DoubleTest {
protected:
    void SetUp() override {
        ::OPENSSL_init_crypto(OPENSSL_INIT_ENGINE_DYNAMIC, nullptr);
        engine.reset(::ENGINE_by_id("dynamic"));
        ASSERT_TRUE(command("SO_PATH", ".\\pkcs11.dll") && command("LOAD", nullptr));
    }

    bool command(const char* name, const char* value) const {
        return ::ENGINE_ctrl_cmd_string(engine.get(), name, value, 0) == 1;
    }

    EVP_PKEY* load_key() const {
        return ::ENGINE_load_private_key(engine.get(), "pkcs11:token=Card 1;id=%01;type=private",
                                         const_cast<UI_METHOD*>(::UI_null()), nullptr);
    }

    EnginePtr engine;
};

TEST_F(EngineDoubleTest, UsingKeyAfterCleanUpIsViolation) {
    ASSERT_TRUE(command("MODULE_PATH", "itp11.dll") && command("PIN", card_pin));
    ASSERT_EQ(::ENGINE_init(engine.get()), 1);
    EVP_PKEY* key = load_key();
    ASSERT_NE(key, nullptr);
    ::ENGINE_get_finish_function(engine.get())(engine.get());
    std::vector<unsigned char> signature(256);
    std::size_t size = signature.size();
    const std::unique_ptr<EVP_PKEY_CTX, FreeWith<&::EVP_PKEY_CTX_free>> signing(
        ::EVP_PKEY_CTX_new(key, nullptr));
    EXPECT_EQ(::EVP_PKEY_sign_init(signing.get()), 1);
    EXPECT_LE(::EVP_PKEY_sign(signing.get(), signature.data(), &size, signature.data(), 32), 0);
    EXPECT_EQ(card.violations(), Lines{"key1 is used after the engine's clean-up"});
}

TEST_F(EngineDoubleTest, LoadingObjectsFromUninitialisedEngineIsViolation) {
    ASSERT_TRUE(command("MODULE_PATH", "itp11.dll") && command("PIN", card_pin));
    UI_METHOD* ui_method = const_cast<UI_METHOD*>(::UI_null());
    // Call the engine's functions directly, because OpenSSL would refuse to load the keys.
    EXPECT_EQ(::ENGINE_get_load_privkey_function(engine.get())(engine.get(), "pkcs11:id=%01;type=private",
                                                               ui_method, nullptr),
              nullptr);
    EXPECT_EQ(::ENGINE_get_load_pubkey_function(engine.get())(engine.get(), "pkcs11:id=%01;type=public",
                                                              ui_method, nullptr),
              nullptr);
    struct {
        const char* cert_id;
        X509* cert;
    } parameters{"pkcs11:id=%01;type=cert", nullptr};
    EXPECT_EQ(::ENGINE_ctrl_cmd(engine.get(), "LOAD_CERT_CTRL", 0, &parameters, nullptr, 0), 0);
    EXPECT_EQ(parameters.cert, nullptr);
    EXPECT_EQ(card.violations(), (Lines{"engine.load_privkey: the engine is not initialised",
                                        "engine.load_pubkey: the engine is not initialised",
                                        "engine.LOAD_CERT_CTRL: the engine is not initialised"}));
}

TEST_F(EngineDoubleTest, LoadedKeyKeepsEngineAlive) {
    ASSERT_TRUE(command("MODULE_PATH", "itp11.dll") && command("PIN", card_pin));
    ASSERT_EQ(::ENGINE_init(engine.get()), 1);
    ::EVP_PKEY_free(load_key());
    ::ENGINE_finish(engine.get());
    engine.reset();
    EXPECT_EQ(card.unbalanced(), (Lines{"card: 1", "engine: 1", "key1: 1"}));
    engine.reset(::ENGINE_by_id("dynamic"));
    ASSERT_TRUE(command("SO_PATH", ".\\pkcs11.dll"));
    EXPECT_FALSE(command("LOAD", nullptr));
}

TEST_F(EngineDoubleTest, EngineWithoutLoadedKeyIsUnloaded) {
    ASSERT_TRUE(command("MODULE_PATH", "itp11.dll"));
    ASSERT_EQ(::ENGINE_init(engine.get()), 1);
    ::ENGINE_finish(engine.get());
    engine.reset();
    EXPECT_EQ(card.unbalanced(), Lines());
    EXPECT_EQ(card.violations(), Lines());
    EXPECT_EQ(::GetModuleHandleA("pkcs11.dll"), nullptr);
    SetUp(); // it can be loaded again
}

TEST_F(EngineDoubleTest, LoadingKeyWithoutModuleOrPinIsViolation) {
    ASSERT_EQ(::ENGINE_init(engine.get()), 1);
    EXPECT_EQ(load_key(), nullptr);
    ::ENGINE_finish(engine.get());
    ASSERT_TRUE(command("MODULE_PATH", "itp11.dll"));
    ASSERT_EQ(::ENGINE_init(engine.get()), 1);
    EXPECT_EQ(load_key(), nullptr);
    EXPECT_EQ(card.violations(), (Lines{"engine.load_privkey: no MODULE_PATH was given",
                                        "engine.load_privkey: the engine would ask the user for the PIN"}));
}

} // namespace
} // namespace Kes::test
