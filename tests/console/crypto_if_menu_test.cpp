#include <chrono>
#include <cstdio>
#include <thread>

#include "console_fixture.h"

// The choice of the crypto interface, in a client that knows the library's headers alone.
namespace Kes::test {
namespace {

std::string menu_of(const std::string& capi, const std::string& pkcs11) {
    return "\nPlease select cryptographic API interface:\n"
           "   ( c ) ... " +
           capi +
           "\n"
           "   ( p ) ... " +
           pkcs11 +
           "\n"
           "   ( s ) ... capi_store (MS CryptoAPI using Windows Cert Store)\n"
           "   ( . ) ... exit\n"
           "  => ";
}

const std::string menu = menu_of("capi (MS CryptoAPI with csp 'Microsoft Base Smart Card Crypto Provider')",
                                 "pkcs11 (PKCS#11 with module 'itp11.dll')");

const std::string menu_location =
    "cons_select_menu:143 Kes::ConsSelectMenu<enum Kes::OsslScardCfg::CryptoIf>::select(): ";

class CryptoIfMenuTest : public ConsoleTest {
protected:
    void start_menu() {
        start(MARVO_CONSOLE_CLIENT, {"crypto_if"});
        EXPECT_EQ(terminal_.read_until(prompt), on_screen(menu));
    }

    /// Runs the client without a terminal: its input is what the shell's redirection says.
    std::string run_without_terminal(const std::string& redirection) {
        std::string line = "exec";
        for (const std::string& word : command(MARVO_CONSOLE_CLIENT, {"crypto_if"}))
            line += " '" + word + "'";
        FILE* const pipe = ::popen((redirection + " " + line).c_str(), "r");
        if (pipe == nullptr) return "";
        std::string output;
        for (int character = std::fgetc(pipe); character != EOF; character = std::fgetc(pipe))
            output += static_cast<char>(character);
        EXPECT_EQ(::pclose(pipe), 0);
        return output;
    }

    void expect_selection(const std::string& key, const std::string& value, const std::string& name) {
        EXPECT_EQ(results(), Lines{"crypto_if status=0 selected=" + value});
        EXPECT_EQ(log(), Lines{"<info> selected item: '" + key + "', obj=" + name});
    }

    void expect_abort(const std::string& error) {
        EXPECT_EQ(results(), Lines{"crypto_if status=1 selected=77"});
        EXPECT_EQ(log(), Lines{"<error> " + error});
    }
};

TEST_F(CryptoIfMenuTest, KeyCPicksCapi) {
    start_menu();
    terminal_.type("c");
    EXPECT_EQ(finish(), "c\r\n");
    expect_selection("c", "1", "capi");
}

TEST_F(CryptoIfMenuTest, KeyPPicksPkcs11) {
    start_menu();
    terminal_.type("p");
    EXPECT_EQ(finish(), "p\r\n");
    expect_selection("p", "2", "pkcs11");
}

TEST_F(CryptoIfMenuTest, KeySPicksCapiStore) {
    start_menu();
    terminal_.type("s");
    EXPECT_EQ(finish(), "s\r\n");
    expect_selection("s", "3", "capi_store");
}

TEST_F(CryptoIfMenuTest, DotIsAUserAbortThatLeavesTheArgumentAlone) {
    start_menu();
    terminal_.type(".");
    EXPECT_EQ(finish(), ".\r\n");
    EXPECT_EQ(results(), Lines{"crypto_if status=1 selected=77"});
    EXPECT_EQ(log(), (Lines{"<info> selected item: '.', obj=unknown",
                            "<error> ossl_scard_cfg_imp:371 "
                            "Kes::OsslScardCfgImp::select_crypto_if_from_console(): user abort: val=16 "
                            "(user_abort)"}));
}

TEST_F(CryptoIfMenuTest, CtrlCIsAUserAbortAndWritesNothingMore) {
    start_menu();
    terminal_.type("\x03");
    EXPECT_EQ(finish(), "");
    expect_abort(menu_location + "user abort <CTRL-C>: val=16 (user_abort)");
}

TEST_F(CryptoIfMenuTest, CtrlCIsAUserAbortInTheMiddleOfAnEscapeSequenceToo) {
    const std::size_t count = 2 * std::size(sequence_beginnings);
    start(MARVO_CONSOLE_CLIENT, std::vector<std::string>(count, "crypto_if"));
    press_ctrl_c_after_sequence_beginnings();
    EXPECT_EQ(finish(), "");
    EXPECT_EQ(results(), Lines(count, "crypto_if status=1 selected=77"));
    EXPECT_EQ(log(), Lines(count, "<error> " + menu_location + "user abort <CTRL-C>: val=16 (user_abort)"));
}

TEST_F(CryptoIfMenuTest, ItemsShowTheNamesThatAreConfigured) {
    const EnvVar csp("MARVO_TEST_CSP_NAME", "My 'own' provider");
    const EnvVar module("MARVO_TEST_MODULE", "/opt/card maker/p11.so");
    start(MARVO_CONSOLE_CLIENT, {"crypto_if"});
    EXPECT_EQ(terminal_.read_until(prompt),
              on_screen(menu_of("capi (MS CryptoAPI with csp 'My 'own' provider')",
                                "pkcs11 (PKCS#11 with module '/opt/card maker/p11.so')")));
    terminal_.type("p");
    EXPECT_EQ(finish(), "p\r\n");
    expect_selection("p", "2", "pkcs11");
}

TEST_F(CryptoIfMenuTest, AnItemsTextEndsAfter4095Characters) {
    const std::string csp = std::string(9999, 'c') + "!";
    const std::string module = std::string(9999, 'm') + "!";
    const EnvVar csp_variable("MARVO_TEST_CSP_NAME", csp);
    const EnvVar module_variable("MARVO_TEST_MODULE", module);
    const std::string expected = menu_of(("capi (MS CryptoAPI with csp '" + csp).substr(0, 4095),
                                         ("pkcs11 (PKCS#11 with module '" + module).substr(0, 4095));
    EXPECT_TRUE(run_without_terminal("printf c |") == expected + "c\n");
    expect_selection("c", "1", "capi");
}

TEST_F(CryptoIfMenuTest, EveryKeyThatIsNoItemsIsIgnoredWithoutATrace) {
    start_menu();
    std::string others;
    for (int key = 0; key < 256; ++key)
        if (key != 3 && key != 27 && key != 'c' && key != 'p' && key != 's' && key != '.')
            others += static_cast<char>(key);
    ASSERT_EQ(others.size(), 250U);
    terminal_.type(others);
    terminal_.type("p");
    EXPECT_EQ(finish(), "p\r\n");
    expect_selection("p", "2", "pkcs11");
}

TEST_F(CryptoIfMenuTest, UpperCaseLettersPickNothing) {
    start_menu();
    terminal_.type("CPSs");
    EXPECT_EQ(finish(), "s\r\n");
    expect_selection("s", "3", "capi_store");
}

TEST_F(CryptoIfMenuTest, EnterPicksNothing) {
    start_menu();
    terminal_.type("\r\n\rc");
    EXPECT_EQ(finish(), "c\r\n");
}

TEST_F(CryptoIfMenuTest, FunctionKeysPickNothingEvenIfTheyAreSentWithAnItemsLetter) {
    start_menu();
    for (const char* key : {"\x1b[A", "\x1b[15~", "\x1bOP", "\x1b[[A", "\x1b[1;5C", "\x1bOp", "\x1b[p",
                            "\x1b[c", "\x1bOs", "\x1bp", "\x1b[3;2s"})
        terminal_.type(key);
    terminal_.type("c");
    EXPECT_EQ(finish(), "c\r\n");
    expect_selection("c", "1", "capi");
}

TEST_F(CryptoIfMenuTest, FunctionKeysWithAltPickNothing) {
    start_menu();
    for (const char* key : {"\x1b\x1b[p", "\x1b\x1bOp", "\x1b\x1b[3;2s", "\x1b\x1b[[c"})
        terminal_.type(key);
    terminal_.type("p");
    EXPECT_EQ(finish(), "p\r\n");
    expect_selection("p", "2", "pkcs11");
}

TEST_F(CryptoIfMenuTest, TheBeginningOfASequenceThatNothingFollowsIsOverAfterAWhile) {
    start_menu();
    terminal_.type("\x1b[");
    std::this_thread::sleep_for(std::chrono::seconds(1)); // the while
    terminal_.type("p");
    EXPECT_EQ(finish(), "p\r\n");
    expect_selection("p", "2", "pkcs11");
}

TEST_F(CryptoIfMenuTest, AFunctionKeyAfterTheBeginningOfAnotherPicksNothing) {
    start_menu();
    for (const char* key : {"\x1b[\x1b[p", "\x1b[1;\x1b[s", "\x1b[[\x1b[c", "\x1bO\x1bOp", "\x1bO\x1b[s"})
        terminal_.type(key);
    terminal_.type("c");
    EXPECT_EQ(finish(), "c\r\n");
    expect_selection("c", "1", "capi");
}

TEST_F(CryptoIfMenuTest, CtrlDIsAKeyLikeAnyOther) {
    start_menu();
    terminal_.type("\x04"
                   "c");
    EXPECT_EQ(finish(), "c\r\n");
    expect_selection("c", "1", "capi");
}

TEST_F(CryptoIfMenuTest, HangUpIsAUserAbort) {
    start_menu();
    terminal_.hang_up();
    EXPECT_EQ(terminal_.wait(), 0);
    expect_abort(menu_location + "user abort <end of input>: val=16 (user_abort)");
}

TEST_F(CryptoIfMenuTest, ClosedInputIsAUserAbort) {
    EXPECT_EQ(run_without_terminal("exec <&- ;"), menu);
    expect_abort(menu_location + "user abort <end of input>: val=16 (user_abort)");
}

TEST_F(CryptoIfMenuTest, EmptyInputIsAUserAbort) {
    EXPECT_EQ(run_without_terminal("exec </dev/null ;"), menu);
    expect_abort(menu_location + "user abort <end of input>: val=16 (user_abort)");
}

TEST_F(CryptoIfMenuTest, InputThatEndsBeforeAnItemIsAUserAbort) {
    EXPECT_EQ(run_without_terminal("printf 'xyz' |"), menu);
    expect_abort(menu_location + "user abort <end of input>: val=16 (user_abort)");
}

TEST_F(CryptoIfMenuTest, BytesOfAPipeAreTheKeysAsTheyStand) {
    EXPECT_EQ(run_without_terminal("printf 'x\\000\\033[s' |"), menu + "s\n");
    expect_selection("s", "3", "capi_store");
}

TEST_F(CryptoIfMenuTest, WhileItWaitsTheTerminalNeitherEchoesNorWaitsForEnterNorTurnsKeysIntoSignals) {
    start_menu();
    const termios waiting = terminal_.settings();
    EXPECT_EQ(waiting.c_lflag & static_cast<tcflag_t>(ICANON | ECHO | ISIG), 0U);
    EXPECT_EQ(waiting.c_oflag & static_cast<tcflag_t>(OPOST | ONLCR), static_cast<tcflag_t>(OPOST | ONLCR));
    terminal_.type("c");
    EXPECT_EQ(finish(), "c\r\n");
}

TEST_F(CryptoIfMenuTest, UnusualSettingsOfTheTerminalAreRestored) {
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

TEST_F(CryptoIfMenuTest, KeysTypedWhileTheMenuIsWrittenAreNotEchoed) {
    terminal_.stop_output(); // the program is held in its first line
    start(MARVO_CONSOLE_CLIENT, {"crypto_if"});
    terminal_.wait_until_silent();
    terminal_.type("xp");
    terminal_.go_on_with_output();
    EXPECT_EQ(finish(), on_screen(menu + "p\n"));
    expect_selection("p", "2", "pkcs11");
}

// The terminal itself echoes what is typed before the program turns that off.
TEST_F(CryptoIfMenuTest, KeysTypedAheadServeOneMenuAfterTheOther) {
    terminal_.type("ps");
    start(MARVO_CONSOLE_CLIENT, {"crypto_if", "crypto_if"});
    EXPECT_EQ(finish(), "ps" + on_screen(menu + "p\n" + menu + "s\n"));
    EXPECT_EQ(results(), (Lines{"crypto_if status=0 selected=2", "crypto_if status=0 selected=3"}));
}

TEST_F(CryptoIfMenuTest, KeysTypedTogetherServeOneMenuAfterTheOther) {
    start(MARVO_CONSOLE_CLIENT, {"crypto_if", "crypto_if"});
    EXPECT_EQ(terminal_.read_until(prompt), on_screen(menu));
    terminal_.type("xpys");
    EXPECT_EQ(finish(), on_screen("p\n" + menu + "s\n"));
    EXPECT_EQ(results(), (Lines{"crypto_if status=0 selected=2", "crypto_if status=0 selected=3"}));
}

} // namespace
} // namespace Kes::test
