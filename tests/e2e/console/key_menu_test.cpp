#include "key_menu.h"

// The menu of keys, in a client whose token has as many keys as the test requests.
namespace Kes::test {
namespace {

class KeyMenuSizeTest : public KeyMenuTest, public testing::WithParamInterface<std::size_t> {};

TEST_P(KeyMenuSizeTest, EachItemsKeySelectsItsNumberAndTheNextKeySelectsNothing) {
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

INSTANTIATE_TEST_SUITE_P(Sizes, KeyMenuSizeTest, testing::Values(1, 3, 11, 37, 62, 63, 66));

TEST_F(KeyMenuTest, MenuWithoutKeysOffersOnlyTheExit) {
    start_menu(0);
    terminal_.type(first_keys + "\r.");
    EXPECT_EQ(finish(), ".\r\n");
    EXPECT_EQ(results(), Lines{failure(dot_error)});
    EXPECT_EQ(log(), (Lines{log_line('.', 255), "<error> " + dot_error}));
}

TEST_F(KeyMenuTest, Key1SelectsNumber1OfThree) {
    start_menu(3);
    terminal_.type("1");
    EXPECT_EQ(finish(), "1\r\n");
    EXPECT_EQ(results(), Lines{success(1)});
    EXPECT_EQ(log(), Lines{"<info> selected item: '1', obj=1"});
}

TEST_F(KeyMenuTest, EleventhKeyIsUpperCaseAAndThirtySeventhIsLowerCaseA) {
    start_menu(37, "keys");
    pick("A", 37);
    pick("a", 37);
    terminal_.type(".");
    EXPECT_EQ(finish(), ".\r\n");
    EXPECT_EQ(results(), (Lines{success(10), success(36), failure(dot_error)}));
}

TEST_F(KeyMenuTest, HangUpIsUserAbort) {
    start_menu(3);
    terminal_.hang_up();
    EXPECT_EQ(terminal_.wait(), 0);
    EXPECT_EQ(results(), Lines{failure(menu_location + "user abort <end of input>: val=16 (user_abort)")});
}

TEST_F(KeyMenuTest, DotIsTheExitOfAMenuOf300Keys) {
    start_menu(300);
    terminal_.type(".");
    EXPECT_EQ(finish(), ".\r\n");
    EXPECT_EQ(results(), Lines{failure(dot_error)});
    EXPECT_EQ(log(), (Lines{log_line('.', 241), "<error> " + dot_error}));
}

TEST_F(KeyMenuTest, KeysTypedAheadAnswerBothMenusOfAClient) {
    const EnvVar keys("MARVO_TEST_KEYS", "11");
    terminal_.type("pA");
    start(MARVO_KEYS_CLIENT, {"crypto_if", "key"});
    const std::string output = finish();
    EXPECT_TRUE(output.ends_with(on_screen(menu_of(11) + "A\n"))) << output;
    EXPECT_EQ(results(), (Lines{"crypto_if status=0 selected=2", success(10)}));
}

} // namespace
} // namespace Kes::test
