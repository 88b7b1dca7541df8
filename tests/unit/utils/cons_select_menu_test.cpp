#include "utils/cons_select_menu.h"

#include <gtest/gtest.h>
#include <sstream>

#include "flush_recorder.h"
#include "support/support.h"
#include "support/typed_keys.h"

namespace Kes {

enum class Colour : std::uint32_t { none = 0, red = 1, blue = 2 };

template <>
struct ConsSelectMenuTraits<Colour> {
    static std::string to_text(Colour colour) {
        return colour == Colour::red ? "red" : colour == Colour::blue ? "blue" : "unknown";
    }
    static constexpr const char* location = "cons_select_menu:143 Kes::ConsSelectMenu<enum Colour>::select()";
};

namespace {

using test::error_text;
using test::Lines;
using test::LogCapture;
using test::TypedKeys;

using ColourMenu = ConsSelectMenu<Colour>;
using IndexMenu = ConsSelectMenu<std::uint64_t>;

constexpr auto colour_menu_text = "\n"
                                  "Choose a colour\n"
                                  "   ( r ) ... red as a rose\n"
                                  "   ( b ) ... blue\n"
                                  "   ( . ) ... exit\n"
                                  "  => ";

ColourMenu colour_menu() {
    return {"Choose a colour",
            {{'r', Colour::red, "red as a rose"}, {'b', Colour::blue, "blue"}, {'.', Colour::none, "exit"}}};
}

/// Replaces the keyboard with a test double and collects standard output.
class ConsSelectMenuTest : public testing::Test {
protected:
    ConsSelectMenuTest() : console_(std::cout.rdbuf(output_.rdbuf())) {}

    ~ConsSelectMenuTest() override { std::cout.rdbuf(console_); }

    template <typename Menu>
    auto select(const Menu& menu, const std::string& keys) {
        keyboard.press(keys);
        keyboard.end();
        return menu.select();
    }

    std::string output() const { return output_.str(); }

    LogCapture log;
    TypedKeys keyboard;

private:
    std::ostringstream output_;
    std::streambuf* console_;
};

TEST_F(ConsSelectMenuTest, ShowsTitleItemsAndPromptAndEchoesTheKey) {
    select(colour_menu(), "b");
    EXPECT_EQ(output(), std::string(colour_menu_text) + "b\n");
}

TEST_F(ConsSelectMenuTest, ReturnsACopyOfTheSelectedItem) {
    const ColourMenu::Item item = select(colour_menu(), "r");
    EXPECT_EQ(item.key, 'r');
    EXPECT_EQ(item.object, Colour::red);
    EXPECT_EQ(item.text, "red as a rose");
}

TEST_F(ConsSelectMenuTest, LogsTheNameOfTheSelectedObject) {
    select(colour_menu(), "b");
    EXPECT_EQ(log.lines(), (Lines{"<info> selected item: 'b', obj=blue"}));
}

TEST_F(ConsSelectMenuTest, LogsTheSelectedIndexInDecimal) {
    const IndexMenu menu("Keys",
                         {{'0', 0, "first"}, {'x', 18446744073709551615U, "last"}, {'.', 255, "exit"}});
    EXPECT_EQ(select(menu, "x").object, 18446744073709551615U);
    EXPECT_EQ(log.lines(), (Lines{"<info> selected item: 'x', obj=18446744073709551615"}));
}

TEST_F(ConsSelectMenuTest, ExitItemIsSelectedLikeAnyOther) {
    const IndexMenu menu("Keys", {{'0', 0, "first"}, {'.', 255, "exit"}});
    EXPECT_EQ(select(menu, ".").object, 255U);
    EXPECT_EQ(log.lines(), (Lines{"<info> selected item: '.', obj=255"}));
}

TEST_F(ConsSelectMenuTest, OtherKeysAreIgnoredSilently) {
    EXPECT_EQ(select(colour_menu(), "xyz 019\t\x7f#b").object, Colour::blue);
    EXPECT_EQ(output(), std::string(colour_menu_text) + "b\n");
    EXPECT_EQ(log.lines(), (Lines{"<info> selected item: 'b', obj=blue"}));
}

TEST_F(ConsSelectMenuTest, KeysAreCaseSensitive) {
    EXPECT_EQ(select(colour_menu(), "RBr").object, Colour::red);
    EXPECT_EQ(output(), std::string(colour_menu_text) + "r\n");
}

TEST_F(ConsSelectMenuTest, EnterAndEscapeAreIgnored) {
    EXPECT_EQ(select(colour_menu(), "\r\n\x1b"
                                    "b")
                  .object,
              Colour::blue);
    EXPECT_EQ(output(), std::string(colour_menu_text) + "b\n");
}

TEST_F(ConsSelectMenuTest, EnterEscapeAndDigitsCanSelectAnItem) {
    const IndexMenu menu("Keys", {{'\r', 1, "enter"}, {'\x1b', 2, "escape"}, {'7', 3, "seven"}});
    EXPECT_EQ(select(menu, "7\r\x1b").object, 3U);
    EXPECT_EQ(menu.select().object, 1U);
    EXPECT_EQ(menu.select().object, 2U);
}

TEST_F(ConsSelectMenuTest, ZeroPrefixIsSkippedAndTheCodeAfterItIsAnOrdinaryKey) {
    EXPECT_EQ(select(colour_menu(), std::string("\0;\0Ir", 5)).object, Colour::red);
    EXPECT_EQ(output(), std::string(colour_menu_text) + "r\n");
}

TEST_F(ConsSelectMenuTest, ZeroIsSkippedEvenIfAnItemHasThatKey) {
    const IndexMenu menu("Keys", {{'\0', 1, "never"}, {'.', 255, "exit"}});
    EXPECT_EQ(select(menu, std::string("\0.", 2)).object, 255U);
}

TEST_F(ConsSelectMenuTest, Prefix224WithoutAnItemIsIgnored) {
    EXPECT_EQ(select(colour_menu(), "\xe0Hb").object, Colour::blue);
    EXPECT_EQ(output(), std::string(colour_menu_text) + "b\n");
}

TEST_F(ConsSelectMenuTest, Prefix224CanSelectAnItem) {
    const IndexMenu menu("Keys", {{'H', 1, "up"}, {'\xe0', 2, "prefix"}});
    EXPECT_EQ(select(menu, "\xe0H").object, 2U);
    EXPECT_EQ(menu.select().object, 1U);
}

TEST_F(ConsSelectMenuTest, KeysFrom128UpwardCanSelectAnItem) {
    const IndexMenu menu("Keys", {{'\x80', 1, "128"}, {'\xe4', 2, "228"}, {'\xff', 3, "255"}});
    EXPECT_EQ(select(menu, "\xff\xe4\x80").object, 3U);
    EXPECT_EQ(menu.select().object, 2U);
    EXPECT_EQ(menu.select().object, 1U);
}

TEST_F(ConsSelectMenuTest, FirstOfTwoItemsWithOneKeyIsSelected) {
    const IndexMenu menu("Keys", {{'a', 1, "first"}, {'a', 2, "second"}});
    const auto item = select(menu, "a");
    EXPECT_EQ(item.object, 1U);
    EXPECT_EQ(item.text, "first");
    EXPECT_EQ(output(), "\nKeys\n   ( a ) ... first\n   ( a ) ... second\n  => a\n");
}

TEST_F(ConsSelectMenuTest, ReadsNoKeysBeyondTheSelection) {
    keyboard.press("xbrest");
    EXPECT_EQ(colour_menu().select().object, Colour::blue);
    keyboard.end();
    EXPECT_EQ(keyboard.unread(), "rest");
}

TEST_F(ConsSelectMenuTest, CtrlCThrowsAndWritesNothingMore) {
    EXPECT_EQ(error_text([&] { select(colour_menu(), "x\x03r"); }),
              "cons_select_menu:143 Kes::ConsSelectMenu<enum Colour>::select(): user abort <CTRL-C>: val=16 "
              "(user_abort)");
    EXPECT_EQ(output(), colour_menu_text);
    EXPECT_EQ(log.lines(), Lines());
    EXPECT_EQ(keyboard.unread(), "r");
}

TEST_F(ConsSelectMenuTest, CtrlCInAnIndexMenuReportsTheLocationOfThatMenu) {
    const IndexMenu menu("Keys", {{'0', 0, "first"}, {'.', 255, "exit"}});
    EXPECT_EQ(error_text([&] { select(menu, "\x03"); }),
              "cons_select_menu:143 Kes::ConsSelectMenu<unsigned __int64>::select(): user abort <CTRL-C>: "
              "val=16 (user_abort)");
}

TEST_F(ConsSelectMenuTest, CtrlCHasTheCodeUserAbort) {
    try {
        select(colour_menu(), "\x03");
        FAIL() << "nothing was thrown";
    } catch (const Error& error) {
        EXPECT_EQ(error.code().value, ErrorCodeType::user_abort);
    }
}

TEST_F(ConsSelectMenuTest, CtrlCTakesPrecedenceOverAnItemWithThatKey) {
    const IndexMenu menu("Keys", {{'\x03', 1, "never"}});
    EXPECT_EQ(error_text([&] { select(menu, "\x03"); }),
              "cons_select_menu:143 Kes::ConsSelectMenu<unsigned __int64>::select(): user abort <CTRL-C>: "
              "val=16 (user_abort)");
}

TEST_F(ConsSelectMenuTest, EndOfInputThrows) {
    EXPECT_EQ(error_text([&] { select(colour_menu(), "xyz"); }),
              "cons_select_menu:143 Kes::ConsSelectMenu<enum Colour>::select(): user abort <end of input>: "
              "val=16 (user_abort)");
    EXPECT_EQ(output(), colour_menu_text);
    EXPECT_EQ(log.lines(), Lines());
}

TEST_F(ConsSelectMenuTest, TitleAndTextsAreShownUnchanged) {
    const IndexMenu menu("", {{'a', 1, ""}, {'b', 2, "line\nbreak \xc3\xa4 \x01"}});
    select(menu, "a");
    EXPECT_EQ(output(), "\n\n   ( a ) ... \n   ( b ) ... line\nbreak \xc3\xa4 \x01\n  => a\n");
}

TEST_F(ConsSelectMenuTest, MenuWithoutItemsShowsOnlyTitleAndPrompt) {
    const IndexMenu menu("Keys", {});
    EXPECT_NE(error_text([&] { select(menu, "abc"); }), "no exception");
    EXPECT_EQ(output(), "\nKeys\n  => ");
}

TEST_F(ConsSelectMenuTest, MenuCanBeShownAgain) {
    const ColourMenu menu = colour_menu();
    EXPECT_EQ(select(menu, "rb").object, Colour::red);
    EXPECT_EQ(menu.select().object, Colour::blue);
    EXPECT_EQ(output(), std::string(colour_menu_text) + "r\n" + colour_menu_text + "b\n");
    EXPECT_EQ(log.lines(),
              (Lines{"<info> selected item: 'r', obj=red", "<info> selected item: 'b', obj=blue"}));
}

TEST_F(ConsSelectMenuTest, EchoOfTheKeyIsFlushed) {
    test::FlushRecorder recorder;
    std::streambuf* before = std::cout.rdbuf(&recorder);
    select(colour_menu(), "b");
    std::cout.rdbuf(before);
    EXPECT_EQ(recorder.text_at_flush, std::string(colour_menu_text) + "b\n");
}

} // namespace
} // namespace Kes
