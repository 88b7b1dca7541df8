#include "key_menu.h"

// Key handling that is specific to the Windows console.
namespace Kes::test {
namespace {

class KeyConsoleTest : public KeyMenuTest {
protected:
    /// Presses the keys and then runs a client that repeats the menu until the user aborts it.
    std::string run_with_pressed_keys(const std::string& keys, std::size_t count) {
        const EnvVar variable("MARVO_TEST_KEYS", std::to_string(count));
        starter_.insert(starter_.end(), {MARVO_PRESS_KEYS, keys});
        start(MARVO_KEYS_CLIENT, {"keys"});
        return finish();
    }

    const std::string ctrl_c_error_ = menu_location + "user abort <CTRL-C>: val=16 (user_abort)";
};

TEST_F(KeyConsoleTest, CtrlCInAMenuWithoutKeysIsUserAbort) {
    EXPECT_EQ(run_with_pressed_keys("3", 0), on_screen(menu_of(0)));
    EXPECT_EQ(results(), Lines{failure(ctrl_c_error_)});
    EXPECT_EQ(log(), Lines{"<error> " + ctrl_c_error_});
}

// The arrow sends 224 and 72. The last of 62 items has "z", which is 122, so 224 selects nothing.
TEST_F(KeyConsoleTest, ArrowSelectsTheItemWhoseCharacterIsItsCode) {
    start_menu(62);
    terminal_.type("\x1b[A");
    EXPECT_EQ(finish(), "H\r\n");
    EXPECT_EQ(results(), Lines{success(17)});
    EXPECT_EQ(log(), Lines{log_line('H', 17)});
}

// With Alt the arrow sends 0 and 152.
TEST_F(KeyConsoleTest, ArrowWithAltSelectsTheItemWhoseCharacterIsItsCode) {
    start_menu(300);
    terminal_.type("\x1b[1;3A");
    EXPECT_EQ(finish(), "\x98\r\n");
    EXPECT_EQ(results(), Lines{success(item_keys(300).find('\x98'))});
}

TEST_F(KeyConsoleTest, BothBytesOfAnArrowSelectTheirItemsOf300) {
    start_menu(300, "keys");
    terminal_.type("\x1b[A.");
    EXPECT_EQ(finish(), on_screen("\xe0\n" + menu_of(300) + "H\n" + menu_of(300) + ".\n"));
    EXPECT_EQ(results(), (Lines{success(item_keys(300).find('\xe0')), success(17), failure(dot_error)}));
}

TEST_F(KeyConsoleTest, EveryCharacterSelectsTheFirstOf300ItemsThatHasIt) {
    constexpr std::size_t count = 300;
    const std::string keys = item_keys(count);
    std::string pressed;
    std::string expected_output;
    Lines expected_results;
    Lines expected_log;
    for (int byte = 1; byte < 255; ++byte) { // Wine reports 255 as the end of the input
        const auto key = static_cast<char>(byte);
        const std::size_t number = keys.find(key);
        if (byte == 3 || key == '.' || number == std::string::npos) continue;
        pressed += std::to_string(byte) + ",";
        expected_output += menu_of(count) + key + "\n";
        expected_results.push_back(success(number));
        // A line feed also ends the log line; the rest is on the next line.
        expected_log.push_back(byte == '\n' ? "<info> selected item: '" : log_line(key, number));
    }
    ASSERT_EQ(expected_results.size(), 239U);
    expected_results.push_back(failure(ctrl_c_error_));
    expected_log.push_back("<error> " + ctrl_c_error_);
    EXPECT_TRUE(run_with_pressed_keys(pressed + "3", count) == on_screen(expected_output + menu_of(count)));
    EXPECT_EQ(results(), expected_results);
    EXPECT_EQ(log(), expected_log);
}

} // namespace
} // namespace Kes::test
