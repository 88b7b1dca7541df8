#include "key_menu.h"

// Key handling that is specific to POSIX terminals.
namespace Kes::test {
namespace {

TEST_F(KeyMenuTest, CtrlCInAMenuWithoutKeysIsUserAbort) {
    start_menu(0);
    terminal_.type("\x03");
    EXPECT_EQ(finish(), "");
    const std::string error = menu_location + "user abort <CTRL-C>: val=16 (user_abort)";
    EXPECT_EQ(results(), Lines{failure(error)});
    EXPECT_EQ(log(), Lines{"<error> " + error});
}

TEST_F(KeyMenuTest, FunctionKeysWhoseSequencesContainAnItemsCharacterSelectNothing) {
    start_menu(62);
    for (const char* key : {"\x1b[A", "\x1b[15~", "\x1bOP", "\x1b[[A", "\x1b[1;5C", "\x1bx"})
        terminal_.type(key);
    terminal_.type(std::string_view("\0", 1));
    terminal_.type("Z");
    EXPECT_EQ(finish(), "Z\r\n");
    EXPECT_EQ(results(), Lines{success(35)});
}

TEST_F(KeyMenuTest, FunctionKeysWithAltOrAfterAnIncompleteSequenceSelectNothing) {
    start_menu(62);
    for (const char* key : {"\x1b\x1b[A", "\x1b\x1b[15~", "\x1b\x1bOP", "\x1b[\x1b[A", "\x1b[1;\x1b[A",
                            "\x1bO\x1bOP", "\x1bO\x1b[A"})
        terminal_.type(key);
    terminal_.type("Z");
    EXPECT_EQ(finish(), "Z\r\n");
    EXPECT_EQ(results(), Lines{success(35)});
}

TEST_F(KeyMenuTest, CtrlCAfterAnIncompleteEscapeSequenceIsUserAbort) {
    const std::size_t count = 2 * std::size(incomplete_sequences);
    const EnvVar keys("MARVO_TEST_KEYS", "62");
    start(MARVO_KEYS_CLIENT, std::vector<std::string>(count, "key"));
    press_ctrl_c_after_incomplete_sequences();
    EXPECT_EQ(finish(), "");
    const std::string error = menu_location + "user abort <CTRL-C>: val=16 (user_abort)";
    EXPECT_EQ(results(), Lines(count, failure(error)));
    EXPECT_EQ(log(), Lines(count, "<error> " + error));
}

// With 300 keys, characters repeat: item 195 has byte 0, item 241 has the dot, and item 243 has the "0" of
// item 0.
TEST_F(KeyMenuTest, EveryByteThatCanBeTypedSelectsTheFirstOf300ItemsThatHasIt) {
    constexpr std::size_t count = 300;
    const std::string keys = item_keys(count);
    start_menu(count, "keys");
    Lines expected_results;
    Lines expected_log;
    for (int byte = 0; byte < 256; ++byte) {
        const std::size_t number = keys.find(static_cast<char>(byte));
        const bool is_not_selectable = byte == 0 || byte == 3 || byte == '.' || number == std::string::npos;
        if (is_not_selectable) continue;
        pick({static_cast<char>(byte)}, count); // 27 is the Escape key
        expected_results.push_back(success(number));
        if (byte == '\n') {
            expected_log.push_back("<info> selected item: '"); // the rest is on the next line
        } else {
            expected_log.push_back(log_line(static_cast<char>(byte), number));
        }
    }
    ASSERT_EQ(expected_results.size(), 240U);
    // Two items have these characters, but byte 0 is ignored and CTRL-C aborts.
    terminal_.type(std::string_view("\0\x03", 2));
    EXPECT_EQ(finish(), "");
    const std::string error = menu_location + "user abort <CTRL-C>: val=16 (user_abort)";
    expected_results.push_back(failure(error));
    expected_log.push_back("<error> " + error);
    EXPECT_EQ(results(), expected_results);
    EXPECT_EQ(log(), expected_log);
}

} // namespace
} // namespace Kes::test
