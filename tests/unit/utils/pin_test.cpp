#include "utils/pin.h"

#include <array>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>
#include <string>
#include <type_traits>
#include <utility>

#include "hooks.h"

namespace Kes {
namespace {

using test::FreedMemory;

// A PIN cannot be copied, converted to text or printed by accident.
static_assert(!std::is_copy_constructible_v<Pin> && !std::is_copy_assignable_v<Pin>);
static_assert(!std::is_convertible_v<Pin, std::string> && !std::is_convertible_v<Pin, const char*>);
static_assert(!std::is_convertible_v<const char*, Pin>);
static_assert(std::is_nothrow_move_constructible_v<Pin> && std::is_nothrow_move_assignable_v<Pin>);

template <typename T>
concept Streamable = requires(std::ostream& out, const T& value) {
    out << value;
};
static_assert(Streamable<int> && !Streamable<Pin>);

TEST(PinTest, DefaultPinIsEmpty) {
    const Pin pin;
    EXPECT_TRUE(pin.is_empty());
    EXPECT_STREQ(pin.c_str(), "");
}

TEST(PinTest, NullPinIsEmpty) {
    const Pin pin(nullptr);
    EXPECT_TRUE(pin.is_empty());
    EXPECT_STREQ(pin.c_str(), "");
}

TEST(PinTest, EmptyTextIsEmpty) {
    const Pin pin("");
    EXPECT_TRUE(pin.is_empty());
    EXPECT_STREQ(pin.c_str(), "");
}

TEST(PinTest, CopiesTheCharacters) {
    std::string given = "canary-4711";
    const Pin pin(given.c_str());
    given.assign(given.size(), '#');
    EXPECT_FALSE(pin.is_empty());
    EXPECT_STREQ(pin.c_str(), "canary-4711");
}

TEST(PinTest, EveryByteIsKept) {
    std::string long_pin(200, '\xff');
    long_pin.append("\x01 \n");
    EXPECT_EQ(Pin(long_pin.c_str()).c_str(), long_pin);
}

TEST(PinTest, DestructorOverwritesThePinBeforeTheMemoryIsFreed) {
    auto pin = std::make_unique<Pin>("canary-4711");
    const FreedMemory freed(pin->c_str(), 11);
    EXPECT_EQ(freed.content(), std::nullopt);
    pin.reset();
    EXPECT_EQ(freed.content(), "xxxxxxxxxxx");
}

TEST(PinTest, ClearOverwritesThePinBeforeTheMemoryIsFreed) {
    Pin pin("canary-4711");
    const FreedMemory freed(pin.c_str(), 11);
    pin.clear();
    EXPECT_EQ(freed.content(), "xxxxxxxxxxx");
    EXPECT_TRUE(pin.is_empty());
    EXPECT_STREQ(pin.c_str(), "");
}

TEST(PinTest, LongPinIsOverwrittenCompletely) {
    auto pin = std::make_unique<Pin>(std::string(250, '7').c_str());
    const FreedMemory freed(pin->c_str(), 250);
    pin.reset();
    EXPECT_EQ(freed.content(), std::string(250, 'x'));
}

TEST(PinTest, PinClearedTwiceIsEmpty) {
    Pin pin("1234");
    pin.clear();
    pin.clear();
    EXPECT_TRUE(pin.is_empty());
}

TEST(PinTest, ClearedPinCanBeAssignedAgain) {
    Pin pin("1234");
    pin.clear();
    pin = Pin("5678");
    EXPECT_STREQ(pin.c_str(), "5678");
}

TEST(PinTest, MoveTransfersTheCharactersWithoutACopy) {
    Pin from("canary-4711");
    const char* characters = from.c_str();
    const FreedMemory freed(characters, 11);
    const Pin to(std::move(from));
    EXPECT_EQ(to.c_str(), characters);
    EXPECT_STREQ(to.c_str(), "canary-4711");
    EXPECT_TRUE(from.is_empty()); // NOLINT: the test checks the state of the moved PIN
    EXPECT_STREQ(from.c_str(), "");
    EXPECT_EQ(freed.content(), std::nullopt);
}

TEST(PinTest, AssignmentOverwritesTheEarlierPin) {
    Pin pin("canary-4711");
    const FreedMemory freed(pin.c_str(), 11);
    pin = Pin("5678");
    EXPECT_EQ(freed.content(), "xxxxxxxxxxx");
    EXPECT_STREQ(pin.c_str(), "5678");
}

TEST(PinTest, AssignmentLeavesTheSourceEmpty) {
    Pin from("5678");
    Pin pin("1234");
    pin = std::move(from);
    EXPECT_TRUE(from.is_empty()); // NOLINT
    EXPECT_STREQ(from.c_str(), "");
}

TEST(PinTest, AssignedEmptyPinOverwritesTheEarlierPin) {
    Pin pin("canary-4711");
    const FreedMemory freed(pin.c_str(), 11);
    pin = Pin();
    EXPECT_EQ(freed.content(), "xxxxxxxxxxx");
    EXPECT_TRUE(pin.is_empty());
}

TEST(PinTest, SelfAssignmentKeepsThePin) {
    Pin pin("1234");
    Pin& same = pin;
    pin = std::move(same);
    EXPECT_STREQ(pin.c_str(), "1234");
    EXPECT_FALSE(pin.is_empty());
}

TEST(OverwriteTest, ReplacesExactlyTheCharacters) {
    std::array<char, 6> characters{'a', 'b', 'c', 'd', 'e', 'f'};
    overwrite(characters.data() + 1, 4);
    EXPECT_EQ(std::string(characters.data(), characters.size()), "axxxxf");
}

TEST(OverwriteTest, NullPointerWithLengthZeroIsAllowed) { overwrite(nullptr, 0); }

} // namespace
} // namespace Kes
