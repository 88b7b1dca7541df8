#include "crypto_if_menu.h"

// Key handling that is specific to the Windows console.
namespace Kes::test {
namespace {

class CryptoIfConsoleTest : public CryptoIfMenuTest {
protected:
    /// Runs a client after pressing these keys.
    std::string run_with_pressed_keys(const std::string& keys, const std::vector<std::string>& menus) {
        starter_.insert(starter_.end(), {MARVO_PRESS_KEYS, keys});
        start(MARVO_CONSOLE_CLIENT, menus);
        return finish();
    }
};

TEST_F(CryptoIfConsoleTest, CtrlCIsUserAbortWithoutFurtherOutput) {
    EXPECT_EQ(run_with_pressed_keys("3", {"crypto_if"}), on_screen(menu));
    expect_abort(menu_location + "user abort <CTRL-C>: val=16 (user_abort)");
}

TEST_F(CryptoIfConsoleTest, CtrlCAfterTheFirstByteOfAFunctionKeyIsUserAbort) {
    EXPECT_EQ(run_with_pressed_keys("224,3,99", {"crypto_if", "crypto_if"}), on_screen(menu + menu + "c\n"));
    EXPECT_EQ(results(), (Lines{"crypto_if status=1 selected=77", "crypto_if status=0 selected=1"}));
}

TEST_F(CryptoIfConsoleTest, EscapeSelectsNothing) {
    EXPECT_EQ(run_with_pressed_keys("27,27,112", {"crypto_if"}), on_screen(menu + "p\n"));
    expect_selection("p", "2", "pkcs11");
}

TEST_F(CryptoIfConsoleTest, FunctionKeysWhoseCodesAreNoItemsLetterSelectNothing) {
    start_menu();
    for (const char* arrow_or_page :
         {"\x1b[A", "\x1b[B", "\x1b[C", "\x1b[D", "\x1b[5~", "\x1b[6~", "\x1b[2~"})
        terminal_.type(arrow_or_page);
    terminal_.type("\x1b[1;3A"); // with Alt the first byte is 0
    terminal_.type("p");
    EXPECT_EQ(finish(), "p\r\n");
    expect_selection("p", "2", "pkcs11");
}

// The code counts as a character: for CTRL with the left arrow, the system sends 224 and then 115, which is
// "s".
TEST_F(CryptoIfConsoleTest, FunctionKeySelectsTheItemWhoseLetterIsItsCode) {
    start_menu();
    terminal_.type("\x1b[1;5D");
    EXPECT_EQ(finish(), "s\r\n");
    expect_selection("s", "3", "capi_store");
}

TEST_F(CryptoIfConsoleTest, InputFromAPipeIsUserAbort) {
    EXPECT_EQ(run_without_terminal("printf 'c' |"), in_a_pipe(menu));
    expect_abort(menu_location + "user abort <end of input>: val=16 (user_abort)");
}

TEST_F(CryptoIfConsoleTest, KeysTypedAheadAnswerSuccessiveMenus) {
    terminal_.type("ps");
    start(MARVO_CONSOLE_CLIENT, {"crypto_if", "crypto_if"});
    EXPECT_EQ(finish(), on_screen(menu + "p\n" + menu + "s\n"));
    EXPECT_EQ(results(), (Lines{"crypto_if status=0 selected=2", "crypto_if status=0 selected=3"}));
}

} // namespace
} // namespace Kes::test
