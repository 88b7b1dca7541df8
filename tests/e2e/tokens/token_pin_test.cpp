// Copies of the PIN in memory, and the number of login attempts on the card.
#include <array>
#include <gtest/gtest.h>
#include <span>

#include "direct_libp11_client.h"
#include "support/memory_search.h"
#include "token_client.h"

namespace Kes::test {
namespace {

constexpr std::size_t pin_length = 22;
constexpr unsigned char mask = 0x5a;

/// The PIN in masked form, so that this program's memory contains the PIN itself only in ClearPin objects.
template <std::size_t size>
consteval std::array<unsigned char, pin_length> masked(const char (&text)[size]) {
    static_assert(size == pin_length + 1);
    std::array<unsigned char, pin_length> bytes{};
    for (std::size_t i = 0; i < pin_length; ++i)
        bytes[i] = static_cast<unsigned char>(text[i]) ^ mask;
    return bytes;
}

using MaskedPin = std::array<unsigned char, pin_length>;
constexpr MaskedPin right_pin = masked("Kanarienvogel-7391-Pin"); // of the prepared token "canary"
constexpr MaskedPin wrong_pin = masked("Kohlmeise-in-der-Grube");

/// The unmasked PIN, wiped by the destructor.
class ClearPin {
public:
    explicit ClearPin(const MaskedPin& pin) {
        volatile char* out = text_.data();
        for (std::size_t i = 0; i < pin_length; ++i)
            out[i] = static_cast<char>(pin[i] ^ mask);
    }
    ~ClearPin() {
        volatile char* out = text_.data();
        for (std::size_t i = 0; i < text_.size(); ++i)
            out[i] = 0;
    }
    ClearPin(const ClearPin&) = delete;
    ClearPin& operator=(const ClearPin&) = delete;

    char* text() { return text_.data(); }

private:
    std::array<char, pin_length + 1> text_{};
};

/// The end of the PIN. The allocator overwrites the beginning of freed blocks, so only the end of a copy that
/// was not wiped can be found.
MaskedText end_of(const MaskedPin& pin) {
    constexpr std::size_t overwritten_length = 16;
    return {std::span(pin).subspan(overwritten_length), mask};
}

int copies_of(const MaskedPin& pin) { return static_cast<int>(count_in_memory(end_of(pin))); }

bool log_in(DirectLibp11Client& direct, const MaskedPin& pin) {
    ClearPin clear(pin);
    return direct.log_in(clear.text());
}

bool load(DirectLibp11Client& direct, const MaskedPin& pin) {
    ClearPin clear(pin);
    return direct.load(clear.text(), "Canary");
}

bool set_pin(const Client& client, const MaskedPin& pin) {
    ClearPin clear(pin);
    return client->set_pin(clear.text()) == 0;
}

bool discover(Client& client, const MaskedPin& pin) {
    return client.read() && set_pin(client, pin) && client->discover_keys(&client.num_keys) == 0;
}

constexpr int failed = 99; // not a possible number of copies

/// The number of copies of the PIN in the memory of a child process after the action.
int copies_after(const MaskedPin& pin, const std::function<bool()>& action) {
    return status_of_child([&] { return action() ? copies_of(pin) : failed; });
}

/// Never destroyed, so that it still exists when the memory is searched; the same for client().
DirectLibp11Client& direct_client() {
    static DirectLibp11Client& object = *new DirectLibp11Client(softhsm_module());
    return object;
}

Client& client() {
    static Client& object = *new Client;
    return object;
}

class PinMemoryTest : public testing::Test {
protected:
    const SoftToken token{"canary"};
};

TEST_F(PinMemoryTest, SearchFindsEveryCopy) {
    EXPECT_EQ(copies_of(right_pin), 0);
    {
        const ClearPin on_stack(right_pin);
        const auto on_heap = std::make_unique<ClearPin>(right_pin);
        EXPECT_EQ(copies_of(right_pin), 2);
    }
    EXPECT_EQ(copies_of(right_pin), 0);
}

TEST_F(PinMemoryTest, StoredPinIsInMemoryOnce) {
    EXPECT_EQ(copies_after(right_pin, [] { return client().read() && set_pin(client(), right_pin); }), 1);
}

TEST_F(PinMemoryTest, ReplacedPinIsWiped) {
    EXPECT_EQ(copies_after(right_pin,
                           [] {
                               return client().read() && set_pin(client(), right_pin) &&
                                      set_pin(client(), wrong_pin);
                           }),
              0);
}

TEST_F(PinMemoryTest, ReplacingThePinAfterLoginLeavesOnlyTheCopyOfLibp11) {
    const int direct_copies = copies_after(right_pin, [] { return log_in(direct_client(), right_pin); });
    EXPECT_EQ(direct_copies, 1);
    EXPECT_EQ(
        copies_after(right_pin, [] { return discover(client(), right_pin) && set_pin(client(), wrong_pin); }),
        direct_copies);
}

TEST_F(PinMemoryTest, OnlyTheStoredPinIsInMemoryAfterAFailedLogin) {
    EXPECT_EQ(copies_after(wrong_pin, [] { return !log_in(direct_client(), wrong_pin); }), 0);
    EXPECT_EQ(copies_after(wrong_pin, [] { return !discover(client(), wrong_pin); }), 1);
    EXPECT_EQ(copies_after(wrong_pin,
                           [] { return !discover(client(), wrong_pin) && set_pin(client(), right_pin); }),
              0);
}

TEST_F(PinMemoryTest, OnlyTheStoredPinIsInMemoryAfterALoadWithAWrongPin) {
    EXPECT_EQ(copies_after(wrong_pin, [] { return !load(direct_client(), wrong_pin); }), 0);
    const auto fail_to_load = [] {
        client().cfg->set_priv_key_name("pkcs11:token=Canary;id=%01;type=private");
        return client().read() && set_pin(client(), wrong_pin) && client()->notify_config_done() == 0 &&
               client()->ossl_load() == 1;
    };
    EXPECT_EQ(copies_after(wrong_pin, fail_to_load), 1);
    EXPECT_EQ(copies_after(wrong_pin,
                           [&] {
                               if (!fail_to_load()) return false;
                               client().end();
                               return true;
                           }),
              0);
}

TEST_F(PinMemoryTest, LoadedKeyAddsOnlyTheStoredPinToTheCopiesOfDirectCalls) {
    const int direct_copies = copies_after(
        right_pin, [] { return log_in(direct_client(), right_pin) && load(direct_client(), right_pin); });
    EXPECT_EQ(direct_copies, 2);
    EXPECT_EQ(copies_after(right_pin, [] { return discover(client(), right_pin) && client().load(); }),
              direct_copies + 1);
}

TEST_F(PinMemoryTest, DestroyWipesThePin) {
    EXPECT_EQ(copies_after(right_pin,
                           [] {
                               if (!discover(client(), right_pin)) return false;
                               client().end();
                               return true;
                           }),
              0);
}

TEST_F(PinMemoryTest, DestroyAfterLoadWipesThePinThatTheEngineKeepsWithDirectCalls) {
    EXPECT_EQ(copies_after(right_pin,
                           [] {
                               if (!log_in(direct_client(), right_pin) || !load(direct_client(), right_pin))
                                   return false;
                               direct_client().end();
                               return true;
                           }),
              1);
    EXPECT_EQ(copies_after(right_pin,
                           [] {
                               if (!discover(client(), right_pin) || !client().load()) return false;
                               client().end();
                               return true;
                           }),
              0);
}

TEST_F(PinMemoryTest, PinIsWipedAfterManyLifetimes) {
    EXPECT_EQ(copies_after(right_pin,
                           [] {
                               for (int i = 0; i < 5; ++i) {
                                   Client one;
                                   if (!discover(one, right_pin) || !one.load()) return false;
                               }
                               return true;
                           }),
              0);
}

TEST_F(PinMemoryTest, LogAndMessagesDoNotContainThePin) {
    Client one;
    std::string texts;
    const auto collect = [&] {
        std::array<char, 8192> dump{};
        texts += one.error();
        texts += one->get_config_used()->dump_settings(dump.data(), dump.size());
    };
    ASSERT_FALSE(discover(one, wrong_pin));
    collect();
    ASSERT_TRUE(set_pin(one, right_pin));
    ASSERT_EQ(one->discover_keys(&one.num_keys), 0);
    collect();
    ASSERT_TRUE(one.load());
    collect();
    one.end();
    texts += one.log_text();
    EXPECT_NE(texts.find("setting pin"), std::string::npos);
    EXPECT_EQ(count_in(texts, end_of(right_pin)), 0U);
    EXPECT_EQ(count_in(texts, end_of(wrong_pin)), 0U);
}

/// Counts the login attempts on the card.
class LoginCountTest : public testing::Test {
protected:
    LoginCountTest() {
        client.cfg->set_pkcs11_module_dll(WrappedModule::path().c_str());
        client.cfg->set_priv_key_name("pkcs11:token=Canary;id=%01;type=private");
        client.cfg->set_cert_name("pkcs11:token=Canary;id=%01;type=cert");
    }

    std::uint64_t logins() const { return module.calls(P11::login); }

    const SoftToken token{"canary"};
    const WrappedModule module;
    Client client;
};

TEST_F(LoginCountTest, EachDiscoveryWithWrongPinLogsInOnce) {
    EXPECT_FALSE(discover(client, wrong_pin));
    EXPECT_EQ(logins(), 1U);
    EXPECT_EQ(client->discover_keys(&client.num_keys), 1);
    EXPECT_EQ(logins(), 2U);
}

TEST_F(LoginCountTest, DiscoveryWithoutPinDoesNotLogIn) {
    EXPECT_FALSE(client.discover(nullptr));
    EXPECT_FALSE(client->set_pin("") == 0 && client->discover_keys(&client.num_keys) == 0);
    EXPECT_EQ(logins(), 0U);
}

TEST_F(LoginCountTest, WrongPinAfterARightOneGoesUnnoticedUntilDestroyWhenTheCardIsReadAgain) {
    ASSERT_TRUE(discover(client, right_pin));
    EXPECT_EQ(logins(), 1U);
    for (std::uint64_t i = 2; i < 5; ++i) {
        ASSERT_EQ(client->read_scard(), 0) << client.error();
        ASSERT_TRUE(set_pin(client, wrong_pin));
        EXPECT_EQ(client->discover_keys(&client.num_keys), 0) << client.error();
        EXPECT_EQ(client.num_keys, 1U);
        EXPECT_EQ(logins(), i); // answered with "already logged in"
    }
    ASSERT_TRUE(client.load()) << client.error();
    EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
    client.end();
    Client next;
    EXPECT_FALSE(discover(next, wrong_pin));
}

TEST_F(LoginCountTest, WrongPinIsRejectedAgainWhenTheCardIsReadAgain) {
    EXPECT_FALSE(discover(client, wrong_pin));
    ASSERT_EQ(client->read_scard(), 0) << client.error();
    EXPECT_EQ(client->discover_keys(&client.num_keys), 1);
    EXPECT_EQ(logins(), 2U);
    ASSERT_EQ(client->read_scard(), 0) << client.error();
    ASSERT_TRUE(set_pin(client, right_pin));
    EXPECT_EQ(client->discover_keys(&client.num_keys), 0) << client.error();
    EXPECT_EQ(logins(), 3U);
}

TEST_F(LoginCountTest, EachLoadWithWrongPinLogsInOnce) {
    ASSERT_TRUE(client.read());
    ASSERT_TRUE(set_pin(client, wrong_pin));
    ASSERT_EQ(client->notify_config_done(), 0);
    EXPECT_EQ(client->ossl_load(), 1);
    EXPECT_EQ(logins(), 1U);
    EXPECT_EQ(client->ossl_load(), 1);
    EXPECT_EQ(logins(), 2U);
}

TEST_F(LoginCountTest, EachLoadWithoutPinLogsInOnceWithAnEmptyPin) {
    ASSERT_TRUE(client.read());
    EXPECT_TRUE(client->is_pin_required());
    ASSERT_EQ(client->notify_config_done(), 0);
    EXPECT_EQ(client->ossl_load(), 1);
    EXPECT_EQ(logins(), 1U);
    EXPECT_EQ(client->ossl_load(), 1);
    EXPECT_EQ(logins(), 2U);
}

TEST_F(LoginCountTest, LoadWithEmptyPinLogsInOnce) {
    ASSERT_TRUE(client.read());
    ASSERT_EQ(client->set_pin(""), 0);
    ASSERT_EQ(client->notify_config_done(), 0);
    EXPECT_EQ(client->ossl_load(), 1);
    EXPECT_EQ(logins(), 1U);
}

TEST_F(LoginCountTest, LoadWithEmptyPinWorksAfterTheLoginOfADiscovery) {
    ASSERT_TRUE(discover(client, right_pin));
    ASSERT_EQ(client->set_pin(""), 0);
    ASSERT_TRUE(client.load()) << client.error();
    EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
}

TEST_F(LoginCountTest, RightPinIsUsedAsOftenAsWithDirectCalls) {
    ASSERT_EQ(status_of_child([] {
                  // Reachable until the process exits, so not a leak.
                  static auto* const object = new DirectLibp11Client(WrappedModule::path());
                  return log_in(*object, right_pin) && load(*object, right_pin) ? 0 : 1;
              }),
              0);
    const auto direct_logins = logins();
    EXPECT_GE(direct_logins, 1U);
    ASSERT_TRUE(discover(client, right_pin));
    EXPECT_EQ(logins(), direct_logins + 1);
    ASSERT_TRUE(client.load());
    EXPECT_EQ(logins(), 2 * direct_logins);
}

} // namespace
} // namespace Kes::test
