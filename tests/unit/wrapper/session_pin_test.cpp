#include <cstdlib>
#include <cstring>
#include <new>

#include "scripted_scard.h"

namespace {

const void* watched_memory = nullptr;
std::string freed_text; // what the watched memory contained when it was freed
bool is_memory_short = false;

} // namespace

void* operator new[](std::size_t size) {
    void* memory = is_memory_short ? nullptr : std::malloc(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

void operator delete[](void* memory) noexcept {
    if (memory != nullptr && memory == watched_memory) freed_text.assign(static_cast<char*>(memory), 8);
    std::free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept { operator delete[](memory); }

namespace Kes::test {
namespace {

class SessionPinTest : public SessionTest {
protected:
    SessionPinTest() { card.needs_pin = true; }

    const std::string no_pin = "the card needs a PIN, and none was set";
    const std::string failed_pin =
        "the card needs a PIN, and the one that was set is not used again after a failure";
    const std::string wiped = std::string(8, '\0');
    char pin[8] = "123456";
};

TEST_F(SessionPinTest, CardIsReadAgainBeforeThePinIsStored) {
    marvo::Session session = open();
    session.set_pin(pin);
    EXPECT_EQ(card.calls, (Lines{"read_scard", "set_pin 123456"}));
}

TEST_F(SessionPinTest, PinOfTheCallerIsWiped) {
    marvo::Session session = open();
    session.set_pin(pin);
    EXPECT_EQ(std::string(pin, sizeof pin), wiped);
}

TEST_F(SessionPinTest, CopyOfThePinIsWipedBeforeItIsFreed) {
    marvo::Session session = open();
    card.watch_pin = [](const char* memory) { watched_memory = memory; };
    session.set_pin(pin);
    EXPECT_EQ(freed_text, wiped);
}

TEST_F(SessionPinTest, PinOfTheCallerIsWipedWhenMemoryRunsOut) {
    marvo::Session session = open();
    is_memory_short = true;
    EXPECT_THROW(session.set_pin(pin), std::bad_alloc);
    is_memory_short = false;
    EXPECT_EQ(std::string(pin, sizeof pin), wiped);
    EXPECT_EQ(card.calls, Lines());
}

TEST_F(SessionPinTest, PinMayFillTheWholeMemory) {
    marvo::Session session = open();
    std::memcpy(pin, "12345678", sizeof pin);
    session.set_pin({pin, sizeof pin});
    EXPECT_EQ(card.calls.back(), "set_pin 12345678");
    EXPECT_EQ(std::string(pin, sizeof pin), wiped);
}

TEST_F(SessionPinTest, CardRemovedDuringTheDialogIsReportedAndThePinIsWiped) {
    marvo::Session session = open();
    card.fail("read_scard", "PKCS11_find_token() failed");
    EXPECT_EQ(error_of([&] { session.set_pin(pin); }), "PKCS11_find_token() failed");
    EXPECT_EQ(card.calls, Lines{"read_scard"});
    EXPECT_EQ(std::string(pin, sizeof pin), wiped);
}

TEST_F(SessionPinTest, FailureToStoreThePinIsReportedAndThePinIsWiped) {
    marvo::Session session = open();
    card.fail("set_pin", "out of memory");
    EXPECT_EQ(error_of([&] { session.set_pin(pin); }), "out of memory");
    EXPECT_EQ(std::string(pin, sizeof pin), wiped);
    EXPECT_EQ(error_of([&] { session.find_keys(); }), no_pin);
}

TEST_F(SessionPinTest, EmptyPinIsRefusedAndTheMemoryIsWiped) {
    marvo::Session session = open();
    pin[0] = '\0'; // the rest of an earlier PIN remains
    EXPECT_EQ(error_of([&] { session.set_pin(pin); }), "the PIN is empty");
    EXPECT_EQ(card.calls, Lines());
    EXPECT_EQ(std::string(pin, sizeof pin), wiped);
    EXPECT_EQ(error_of([&] { session.set_pin({pin, 0}); }), "the PIN is empty");
}

TEST_F(SessionPinTest, PinIsNotStoredForACardThatNeedsNone) {
    marvo::Session session = open();
    card.needs_pin = false;
    session.set_pin(pin);
    EXPECT_EQ(card.calls, Lines{"read_scard"});
    EXPECT_EQ(std::string(pin, sizeof pin), wiped);
}

TEST_F(SessionPinTest, SearchWithoutTheRequiredPinIsRefused) {
    marvo::Session session = open();
    EXPECT_EQ(error_of([&] { session.find_keys(); }), no_pin);
    EXPECT_EQ(card.calls, Lines());
}

TEST_F(SessionPinTest, LoadWithoutTheRequiredPinIsRefused) {
    marvo::Session session = open();
    EXPECT_EQ(error_of([&] { session.load(); }), no_pin);
    EXPECT_EQ(card.calls, Lines());
}

TEST_F(SessionPinTest, LoadOfAKeyWithoutTheRequiredPinIsRefused) {
    marvo::Session session = open();
    EXPECT_EQ(error_of([&] { session.load({"", "%01", 0}); }), no_pin);
    EXPECT_EQ(card.calls, Lines());
}

TEST_F(SessionPinTest, PinThatTheSearchRejectsIsNotUsedAgain) {
    marvo::Session session = open();
    session.set_pin(pin);
    card.fail("discover_keys", "PIN incorrect");
    EXPECT_EQ(error_of([&] { session.find_keys(); }), "PIN incorrect");
    card.calls.clear();
    EXPECT_EQ(error_of([&] { session.find_keys(); }), failed_pin);
    EXPECT_EQ(error_of([&] { session.load(); }), failed_pin);
    EXPECT_EQ(card.calls, Lines());
}

TEST_F(SessionPinTest, PinThatTheLoadRejectsIsNotUsedAgain) {
    marvo::Session session = open();
    session.set_pin(pin);
    card.fail("ossl_load", "PIN incorrect");
    EXPECT_EQ(error_of([&] { session.load(); }), "PIN incorrect");
    session.read_card();
    EXPECT_EQ(error_of([&] { session.load(); }), failed_pin);
}

TEST_F(SessionPinTest, FailureToStoreAPinAlsoEndsTheOneBefore) {
    marvo::Session session = open();
    session.set_pin(pin);
    card.fail("set_pin", "out of memory");
    std::memcpy(pin, "654321", 7);
    EXPECT_EQ(error_of([&] { session.set_pin(pin); }), "out of memory");
    EXPECT_EQ(error_of([&] { session.load(); }), no_pin);
}

TEST_F(SessionPinTest, PinIsRequiredAgainAfterACardWithoutOne) {
    marvo::Session session = open();
    session.set_pin(pin);
    card.needs_pin = false;
    session.read_card();
    card.needs_pin = true;
    session.read_card();
    card.calls.clear();
    EXPECT_EQ(error_of([&] { session.load(); }), no_pin);
    EXPECT_EQ(card.calls, Lines());
}

TEST_F(SessionPinTest, FailureWithoutAPinIsNotTakenForARejectedPin) {
    card.needs_pin = false;
    marvo::Session session = open();
    card.fail("discover_keys", "token is not initialized");
    EXPECT_EQ(error_of([&] { session.find_keys(); }), "token is not initialized");
    card.needs_pin = true;
    EXPECT_EQ(error_of([&] { session.find_keys(); }), no_pin);
}

TEST_F(SessionPinTest, AnotherPinIsUsedAfterARejectedOne) {
    marvo::Session session = open();
    session.set_pin(pin);
    card.fail("discover_keys", "PIN incorrect");
    EXPECT_EQ(error_of([&] { session.find_keys(); }), "PIN incorrect");
    card.succeed("discover_keys");
    std::memcpy(pin, "654321", 7);
    session.set_pin(pin);
    EXPECT_EQ(session.find_keys().size(), 1U);
}

TEST_F(SessionPinTest, AcceptedPinServesTheSearchAndTheLoad) {
    marvo::Session session = open();
    session.set_pin(pin);
    EXPECT_EQ(error_of([&] { session.load(session.find_keys().at(0)); }), "no error");
}

} // namespace
} // namespace Kes::test
