#include "console_fixture.h"

// The choice of a key, in a client whose token has as many keys as the test asks for.
namespace Kes::test {
namespace {

const std::string menu_location = "cons_select_menu:143 Kes::ConsSelectMenu<unsigned __int64>::select(): ";
const std::string dot_error =
    "ossl_scard_if_imp:390 Kes::OsslScardIfImp::select_key_from_console(): user abort: val=16 (user_abort)";

const std::string first_keys = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

/// The characters of the items: after "z" the next byte values, up to 255, then from 0 again.
std::string item_keys(std::size_t count) {
    std::string keys = first_keys;
    for (int byte = 'z' + 1; byte <= 255; ++byte)
        keys += static_cast<char>(byte);
    for (int byte = 0; byte < '0'; ++byte)
        keys += static_cast<char>(byte);
    keys += first_keys; // a second time, so nobody reaches these
    return keys.substr(0, count);
}

std::string menu_of(std::size_t count) {
    const std::string keys = item_keys(count);
    std::string text = "\nPlease select from available keys:\n";
    for (std::size_t i = 0; i < count; ++i)
        text += std::string("   ( ") + keys[i] + " ) ... Card: key " + std::to_string(i) + "\n";
    return text + "   ( . ) ... exit\n  => ";
}

std::string success(std::size_t number) {
    return "key status=0 selected=" + std::to_string(number) + " error=''";
}

std::string failure(const std::string& error) { return "key status=1 selected=77 error='" + error + "'"; }

std::string log_line(char key, std::size_t number) {
    return std::string("<info> selected item: '") + key + "', obj=" + std::to_string(number);
}

class KeyMenuTest : public ConsoleTest {
protected:
    void start_menu(std::size_t count, const std::string& menu = "key") {
        const EnvVar keys("MARVO_TEST_KEYS", std::to_string(count));
        start(MARVO_KEYS_CLIENT, {menu});
        EXPECT_EQ(terminal_.read_until(prompt), on_screen(menu_of(count)));
    }

    /// Picks the item in a menu that then comes again.
    void pick(const std::string& key, std::size_t count) {
        terminal_.type(key);
        EXPECT_EQ(terminal_.read_until(prompt), on_screen(key + "\n" + menu_of(count)));
    }
};

class KeyMenuSizeTest : public KeyMenuTest, public testing::WithParamInterface<std::size_t> {};

TEST_P(KeyMenuSizeTest, EachItemsKeyPicksItsNumberAndTheFirstKeyBeyondPicksNothing) {
    const std::size_t count = GetParam();
    const std::string keys = item_keys(count);
    Lines expected_results;
    Lines expected_log;
    start_menu(count, "keys");
    for (std::size_t i = 0; i < count; ++i) {
        pick({keys[i]}, count);
        expected_results.push_back(success(i));
        expected_log.push_back(log_line(keys[i], i));
    }
    terminal_.type(item_keys(count + 1).substr(count) + ".");
    EXPECT_EQ(finish(), ".\r\n");
    expected_results.push_back(failure(dot_error));
    expected_log.push_back(log_line('.', 255));
    expected_log.push_back("<error> " + dot_error);
    EXPECT_EQ(results(), expected_results);
    EXPECT_EQ(log(), expected_log);
}

INSTANTIATE_TEST_SUITE_P(Sizes, KeyMenuSizeTest, testing::Values(1, 3, 11, 37, 62, 63, 70));

TEST_F(KeyMenuTest, WithoutKeysThereIsOnlyTheExit) {
    start_menu(0);
    terminal_.type(first_keys + "\r.");
    EXPECT_EQ(finish(), ".\r\n");
    EXPECT_EQ(results(), Lines{failure(dot_error)});
    EXPECT_EQ(log(), (Lines{log_line('.', 255), "<error> " + dot_error}));
}

TEST_F(KeyMenuTest, WithoutKeysCtrlCIsAUserAbort) {
    start_menu(0);
    terminal_.type("\x03");
    EXPECT_EQ(finish(), "");
    const std::string error = menu_location + "user abort <CTRL-C>: val=16 (user_abort)";
    EXPECT_EQ(results(), Lines{failure(error)});
    EXPECT_EQ(log(), Lines{"<error> " + error});
}

TEST_F(KeyMenuTest, WithThreeKeysKey1PicksNumber1) {
    start_menu(3);
    terminal_.type("1");
    EXPECT_EQ(finish(), "1\r\n");
    EXPECT_EQ(results(), Lines{success(1)});
    EXPECT_EQ(log(), Lines{"<info> selected item: '1', obj=1"});
}

TEST_F(KeyMenuTest, TheEleventhKeyIsUpperCaseAAndTheThirtySeventhLowerCaseA) {
    start_menu(37, "keys");
    pick("A", 37);
    pick("a", 37);
    terminal_.type("\x03");
    EXPECT_EQ(finish(), "");
    const std::string error = menu_location + "user abort <CTRL-C>: val=16 (user_abort)";
    EXPECT_EQ(results(), (Lines{success(10), success(36), failure(error)}));
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

TEST_F(KeyMenuTest, HangUpIsAUserAbort) {
    start_menu(3);
    terminal_.hang_up();
    EXPECT_EQ(terminal_.wait(), 0);
    EXPECT_EQ(results(), Lines{failure(menu_location + "user abort <end of input>: val=16 (user_abort)")});
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

TEST_F(KeyMenuTest, With300KeysTheDotIsStillTheExit) {
    start_menu(300);
    terminal_.type(".");
    EXPECT_EQ(finish(), ".\r\n");
    EXPECT_EQ(results(), Lines{failure(dot_error)});
    EXPECT_EQ(log(), (Lines{log_line('.', 241), "<error> " + dot_error}));
}

TEST_F(KeyMenuTest, KeysTypedAheadServeBothMenusOfAClient) {
    const EnvVar keys("MARVO_TEST_KEYS", "11");
    terminal_.type("pA");
    start(MARVO_KEYS_CLIENT, {"crypto_if", "key"});
    const std::string output = finish();
    EXPECT_TRUE(output.ends_with(on_screen(menu_of(11) + "A\n"))) << output;
    EXPECT_EQ(results(), (Lines{"crypto_if status=0 selected=2", success(10)}));
}

} // namespace
} // namespace Kes::test
