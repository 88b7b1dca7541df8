#include <chrono>
#include <thread>

#include "crypto_if_menu.h"

// Key handling that is specific to POSIX terminals.
namespace Kes::test {
namespace {

TEST_F(CryptoIfMenuTest, CtrlCIsUserAbortWithoutFurtherOutput) {
    start_menu();
    terminal_.type("\x03");
    EXPECT_EQ(finish(), "");
    expect_abort(menu_location + "user abort <CTRL-C>: val=16 (user_abort)");
}

TEST_F(CryptoIfMenuTest, CtrlCAfterAnIncompleteEscapeSequenceIsUserAbort) {
    const std::size_t count = 2 * std::size(incomplete_sequences);
    start(MARVO_CONSOLE_CLIENT, std::vector<std::string>(count, "crypto_if"));
    press_ctrl_c_after_incomplete_sequences();
    EXPECT_EQ(finish(), "");
    EXPECT_EQ(results(), Lines(count, "crypto_if status=1 selected=77"));
    EXPECT_EQ(log(), Lines(count, "<error> " + menu_location + "user abort <CTRL-C>: val=16 (user_abort)"));
}

TEST_F(CryptoIfMenuTest, FunctionKeysWhoseSequencesContainAnItemsLetterSelectNothing) {
    start_menu();
    for (const char* key : {"\x1b[A", "\x1b[15~", "\x1bOP", "\x1b[[A", "\x1b[1;5C", "\x1bOp", "\x1b[p",
                            "\x1b[c", "\x1bOs", "\x1bp", "\x1b[3;2s"})
        terminal_.type(key);
    terminal_.type("c");
    EXPECT_EQ(finish(), "c\r\n");
    expect_selection("c", "1", "capi");
}

TEST_F(CryptoIfMenuTest, FunctionKeysWithAltSelectNothing) {
    start_menu();
    for (const char* key : {"\x1b\x1b[p", "\x1b\x1bOp", "\x1b\x1b[3;2s", "\x1b\x1b[[c"})
        terminal_.type(key);
    terminal_.type("p");
    EXPECT_EQ(finish(), "p\r\n");
    expect_selection("p", "2", "pkcs11");
}

TEST_F(CryptoIfMenuTest, IncompleteEscapeSequenceIsDiscardedAfterATimeout) {
    start_menu();
    terminal_.type("\x1b[");
    std::this_thread::sleep_for(std::chrono::seconds(1)); // longer than the timeout
    terminal_.type("p");
    EXPECT_EQ(finish(), "p\r\n");
    expect_selection("p", "2", "pkcs11");
}

TEST_F(CryptoIfMenuTest, FunctionKeyAfterAnIncompleteEscapeSequenceSelectsNothing) {
    start_menu();
    for (const char* key : {"\x1b[\x1b[p", "\x1b[1;\x1b[s", "\x1b[[\x1b[c", "\x1bO\x1bOp", "\x1bO\x1b[s"})
        terminal_.type(key);
    terminal_.type("c");
    EXPECT_EQ(finish(), "c\r\n");
    expect_selection("c", "1", "capi");
}

TEST_F(CryptoIfMenuTest, InputThatEndsBeforeASelectionIsUserAbort) {
    EXPECT_EQ(run_without_terminal("printf 'xyz' |"), menu);
    expect_abort(menu_location + "user abort <end of input>: val=16 (user_abort)");
}

TEST_F(CryptoIfMenuTest, BytesFromAPipeAreNotParsedAsEscapeSequences) {
    EXPECT_EQ(run_without_terminal("printf 'x\\000\\033[s' |"), menu + "s\n");
    expect_selection("s", "3", "capi_store");
}

TEST_F(CryptoIfMenuTest, WaitingMenuTurnsOffEchoLineInputAndSignals) {
    start_menu();
    const termios waiting = terminal_.settings();
    EXPECT_EQ(waiting.c_lflag & static_cast<tcflag_t>(ICANON | ECHO | ISIG), 0U);
    EXPECT_EQ(waiting.c_oflag & static_cast<tcflag_t>(OPOST | ONLCR), static_cast<tcflag_t>(OPOST | ONLCR));
    terminal_.type("c");
    EXPECT_EQ(finish(), "c\r\n");
}

TEST_F(CryptoIfMenuTest, UnusualTerminalSettingsAreRestored) {
    termios unusual = terminal_.settings();
    unusual.c_lflag &= ~static_cast<tcflag_t>(ECHO | IEXTEN);
    unusual.c_iflag &= ~static_cast<tcflag_t>(ICRNL);
    unusual.c_cc[VMIN] = 7;
    unusual.c_cc[VINTR] = 'q';
    terminal_.change_settings(unusual);
    start_menu();
    terminal_.type("q\x1b[sp");
    EXPECT_EQ(finish(), "p\r\n");
    EXPECT_TRUE(is_same(terminal_.settings(), unusual));
}

TEST_F(CryptoIfMenuTest, KeysTypedDuringMenuOutputAreNotEchoed) {
    terminal_.stop_output(); // blocks the program in its first line
    start(MARVO_CONSOLE_CLIENT, {"crypto_if"});
    terminal_.wait_until_echo_is_off();
    terminal_.type("xp");
    terminal_.resume_output();
    EXPECT_EQ(finish(), on_screen(menu + "p\n"));
    expect_selection("p", "2", "pkcs11");
}

// The terminal echoes keys that are typed before the program turns the echo off.
TEST_F(CryptoIfMenuTest, KeysTypedAheadAnswerSuccessiveMenus) {
    terminal_.type("ps");
    EXPECT_EQ(terminal_.read_until("ps"), "ps");
    start(MARVO_CONSOLE_CLIENT, {"crypto_if", "crypto_if"});
    EXPECT_EQ(finish(), on_screen(menu + "p\n" + menu + "s\n"));
    EXPECT_EQ(results(), (Lines{"crypto_if status=0 selected=2", "crypto_if status=0 selected=3"}));
}

} // namespace
} // namespace Kes::test
