// Where the PIN is left, and how often a card is asked to judge one.
#include <array>
#include <gtest/gtest.h>
#include <span>

#include "direct_libp11_client.h"
#include "support/memory_search.h"
#include "token_client.h"

namespace Kes::test {
namespace {

constexpr std::size_t pin_length = 22;
constexpr unsigned char veil = 0x5a;

/// The PIN as this program keeps it: nowhere in its memory does the PIN itself stand, but where Canary puts
/// it.
template <std::size_t size>
consteval std::array<unsigned char, pin_length> veiled(const char (&text)[size]) {
    static_assert(size == pin_length + 1);
    std::array<unsigned char, pin_length> bytes{};
    for (std::size_t i = 0; i < pin_length; ++i)
        bytes[i] = static_cast<unsigned char>(text[i]) ^ veil;
    return bytes;
}

using Veiled = std::array<unsigned char, pin_length>;
constexpr Veiled right_pin = veiled("Kanarienvogel-7391-Pin"); // of the prepared token "canary"
constexpr Veiled wrong_pin = veiled("Kohlmeise-in-der-Grube");

/// The PIN in clear, wiped with the object.
class Clear {
public:
    explicit Clear(const Veiled& pin) {
        volatile char* out = text_.data();
        for (std::size_t i = 0; i < pin_length; ++i)
            out[i] = static_cast<char>(pin[i] ^ veil);
    }
    ~Clear() {
        volatile char* out = text_.data();
        for (std::size_t i = 0; i < text_.size(); ++i)
            out[i] = 0;
    }
    Clear(const Clear&) = delete;
    Clear& operator=(const Clear&) = delete;

    char* text() { return text_.data(); }

private:
    std::array<char, pin_length + 1> text_{};
};

/// The end of the PIN: the allocator writes over the beginning of what is freed, so a copy that nobody wiped
/// shows by its end alone.
VeiledText end_of(const Veiled& pin) {
    constexpr std::size_t lost_length = 16;
    return {std::span(pin).subspan(lost_length), veil};
}

int copies_of(const Veiled& pin) { return static_cast<int>(count_in_memory(end_of(pin))); }

bool log_in(ByHand& by_hand, const Veiled& pin) {
    Clear clear(pin);
    return by_hand.log_in(clear.text());
}

bool load(ByHand& by_hand, const Veiled& pin) {
    Clear clear(pin);
    return by_hand.load(clear.text(), "Canary");
}

bool set_pin(const Client& client, const Veiled& pin) {
    Clear clear(pin);
    return client->set_pin(clear.text()) == 0;
}

bool discover(Client& client, const Veiled& pin) {
    return client.read() && set_pin(client, pin) && client->discover_keys(&client.num_keys) == 0;
}

constexpr int failed = 99; // no number of copies

/// How many copies of the PIN a child process has in its memory after that.
int copies_after(const Veiled& pin, const std::function<bool()>& action) {
    return status_of_child([&] { return action() ? copies_of(pin) : failed; });
}

/// Objects that stay alive while the memory is searched, and until the child process ends.
ByHand& by_hand() {
    static ByHand& object = *new ByHand(softhsm_module());
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

TEST_F(PinMemoryTest, TheSearchFindsWhatIsThere) {
    EXPECT_EQ(copies_of(right_pin), 0);
    {
        const Clear on_stack(right_pin);
        const auto on_heap = std::make_unique<Clear>(right_pin);
        EXPECT_EQ(copies_of(right_pin), 2);
    }
    EXPECT_EQ(copies_of(right_pin), 0);
}

TEST_F(PinMemoryTest, AStoredPinIsThereOnce) {
    EXPECT_EQ(copies_after(right_pin, [] { return client().read() && set_pin(client(), right_pin); }), 1);
}

TEST_F(PinMemoryTest, AReplacedPinIsGone) {
    EXPECT_EQ(copies_after(right_pin,
                           [] {
                               return client().read() && set_pin(client(), right_pin) &&
                                      set_pin(client(), wrong_pin);
                           }),
              0);
}

TEST_F(PinMemoryTest, APinReplacedAfterTheLoginIsLeftWhereLibp11LeavesIt) {
    const int without_us = copies_after(right_pin, [] { return log_in(by_hand(), right_pin); });
    EXPECT_EQ(without_us, 1);
    EXPECT_EQ(
        copies_after(right_pin, [] { return discover(client(), right_pin) && set_pin(client(), wrong_pin); }),
        without_us);
}

TEST_F(PinMemoryTest, AfterAFailedLoginOnlyTheStoredPinIsThere) {
    EXPECT_EQ(copies_after(wrong_pin, [] { return !log_in(by_hand(), wrong_pin); }), 0);
    EXPECT_EQ(copies_after(wrong_pin, [] { return !discover(client(), wrong_pin); }), 1);
    EXPECT_EQ(copies_after(wrong_pin,
                           [] { return !discover(client(), wrong_pin) && set_pin(client(), right_pin); }),
              0);
}

TEST_F(PinMemoryTest, AfterALoadThatFailedForThePinOnlyTheStoredPinIsThere) {
    EXPECT_EQ(copies_after(wrong_pin, [] { return !load(by_hand(), wrong_pin); }), 0);
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

TEST_F(PinMemoryTest, WhileAKeyIsLoadedOnlyTheStoredPinIsMoreThanByHand) {
    const int without_us =
        copies_after(right_pin, [] { return log_in(by_hand(), right_pin) && load(by_hand(), right_pin); });
    EXPECT_EQ(without_us, 2);
    EXPECT_EQ(copies_after(right_pin, [] { return discover(client(), right_pin) && client().load(); }),
              without_us + 1);
}

TEST_F(PinMemoryTest, AfterDestroyThePinIsGone) {
    EXPECT_EQ(copies_after(right_pin,
                           [] {
                               if (!discover(client(), right_pin)) return false;
                               client().end();
                               return true;
                           }),
              0);
}

TEST_F(PinMemoryTest, AfterLoadAndDestroyThePinIsGoneWhereByHandTheEngineKeepsIt) {
    EXPECT_EQ(copies_after(right_pin,
                           [] {
                               if (!log_in(by_hand(), right_pin) || !load(by_hand(), right_pin)) return false;
                               by_hand().end();
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

TEST_F(PinMemoryTest, AfterManyLifetimesThePinIsGone) {
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

TEST_F(PinMemoryTest, ThePinIsInNoTextOfTheLibrary) {
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

/// How often the card is asked.
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

TEST_F(LoginCountTest, ADiscoveryWithAWrongPinAsksOnceEachTime) {
    EXPECT_FALSE(discover(client, wrong_pin));
    EXPECT_EQ(logins(), 1U);
    EXPECT_EQ(client->discover_keys(&client.num_keys), 1);
    EXPECT_EQ(logins(), 2U);
}

TEST_F(LoginCountTest, ADiscoveryWithoutPinAsksNever) {
    EXPECT_FALSE(client.discover(nullptr));
    EXPECT_FALSE(client->set_pin("") == 0 && client->discover_keys(&client.num_keys) == 0);
    EXPECT_EQ(logins(), 0U);
}

TEST_F(LoginCountTest, ALoadWithAWrongPinAsksOnce) {
    ASSERT_TRUE(client.read());
    ASSERT_TRUE(set_pin(client, wrong_pin));
    ASSERT_EQ(client->notify_config_done(), 0);
    EXPECT_EQ(client->ossl_load(), 1);
    EXPECT_EQ(logins(), 1U);
    EXPECT_EQ(client->ossl_load(), 1);
    EXPECT_EQ(logins(), 2U);
}

TEST_F(LoginCountTest, ALoadWithoutPinAsksNever) {
    ASSERT_TRUE(client.read());
    ASSERT_EQ(client->notify_config_done(), 0);
    EXPECT_EQ(client->ossl_load(), 1);
    EXPECT_EQ(logins(), 0U);
}

TEST_F(LoginCountTest, ALoadWithAnEmptyPinAsksNever) {
    ASSERT_TRUE(client.read());
    ASSERT_EQ(client->set_pin(""), 0);
    ASSERT_EQ(client->notify_config_done(), 0);
    EXPECT_EQ(client->ossl_load(), 1);
    EXPECT_EQ(logins(), 0U);
}

TEST_F(LoginCountTest, ARightPinIsAskedForAsOftenAsByHand) {
    ASSERT_EQ(status_of_child([] {
                  static auto* const object = new ByHand(WrappedModule::path()); // alive, so not leaked
                  return log_in(*object, right_pin) && load(*object, right_pin) ? 0 : 1;
              }),
              0);
    const auto without_us = logins();
    EXPECT_GE(without_us, 1U);
    ASSERT_TRUE(discover(client, right_pin));
    EXPECT_EQ(logins(), without_us + 1);
    ASSERT_TRUE(client.load());
    EXPECT_EQ(logins(), 2 * without_us);
}

} // namespace
} // namespace Kes::test
