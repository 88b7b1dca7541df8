#include "key_menu.h"

// What only a terminal of this system does with the keys.
namespace Kes::test {
namespace {

TEST_F(KeyMenuTest, WithoutKeysCtrlCIsAUserAbort) {
    start_menu(0);
    terminal_.type("\x03");
    EXPECT_EQ(finish(), "");
    const std::string error = menu_location + "user abort <CTRL-C>: val=16 (user_abort)";
    EXPECT_EQ(results(), Lines{failure(error)});
    EXPECT_EQ(log(), Lines{"<error> " + error});
}

TEST_F(KeyMenuTest, FunctionKeysPickNothingEvenIfTheyAreSentWithAnItemsCharacter) {
    start_menu(62);
    for (const char* key : {"\x1b[A", "\x1b[15~", "\x1bOP", "\x1b[[A", "\x1b[1;5C", "\x1bx"})
        terminal_.type(key);
    terminal_.type(std::string_view("\0", 1));
    terminal_.type("Z");
    EXPECT_EQ(finish(), "Z\r\n");
    EXPECT_EQ(results(), Lines{success(35)});
}

TEST_F(KeyMenuTest, FunctionKeysWithAltOrBrokenOffByAnotherPickNothing) {
    start_menu(62);
    for (const char* key : {"\x1b\x1b[A", "\x1b\x1b[15~", "\x1b\x1bOP", "\x1b[\x1b[A", "\x1b[1;\x1b[A",
                            "\x1bO\x1bOP", "\x1bO\x1b[A"})
        terminal_.type(key);
    terminal_.type("Z");
    EXPECT_EQ(finish(), "Z\r\n");
    EXPECT_EQ(results(), Lines{success(35)});
}

TEST_F(KeyMenuTest, CtrlCIsAUserAbortInTheMiddleOfAnEscapeSequenceToo) {
    const std::size_t count = 2 * std::size(sequence_beginnings);
    const EnvVar keys("MARVO_TEST_KEYS", "62");
    start(MARVO_KEYS_CLIENT, std::vector<std::string>(count, "key"));
    press_ctrl_c_after_sequence_beginnings();
    EXPECT_EQ(finish(), "");
    const std::string error = menu_location + "user abort <CTRL-C>: val=16 (user_abort)";
    EXPECT_EQ(results(), Lines(count, failure(error)));
    EXPECT_EQ(log(), Lines(count, "<error> " + error));
}

// With 300 keys the characters start again: item 195 has byte 0, item 241 the dot, item 243 the "0" of item
// 0.
TEST_F(KeyMenuTest, With300KeysEveryByteThatCanBeTypedPicksTheFirstItemThatHasIt) {
    constexpr std::size_t count = 300;
    const std::string keys = item_keys(count);
    start_menu(count, "keys");
    Lines expected_results;
    Lines expected_log;
    for (int byte = 0; byte < 256; ++byte) {
        const std::size_t number = keys.find(static_cast<char>(byte));
        const bool is_never_a_key = byte == 0 || byte == 3 || byte == '.' || number == std::string::npos;
        if (is_never_a_key) continue;
        pick({static_cast<char>(byte)}, count); // 27 is escape, pressed alone
        expected_results.push_back(success(number));
        if (byte == '\n') {
            expected_log.push_back("<info> selected item: '"); // and the rest in a line of its own
        } else {
            expected_log.push_back(log_line(static_cast<char>(byte), number));
        }
    }
    ASSERT_EQ(expected_results.size(), 240U);
    terminal_.type(std::string_view("\0\x03", 2)); // items have these two, and still they mean something else
    EXPECT_EQ(finish(), "");
    const std::string error = menu_location + "user abort <CTRL-C>: val=16 (user_abort)";
    expected_results.push_back(failure(error));
    expected_log.push_back("<error> " + error);
    EXPECT_EQ(results(), expected_results);
    EXPECT_EQ(log(), expected_log);
}

} // namespace
} // namespace Kes::test
