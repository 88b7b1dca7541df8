#include "crypto_if_menu.h"

// The menu of crypto interfaces, in a client that uses only the library's public headers.
namespace Kes::test {
namespace {

TEST_F(CryptoIfMenuTest, KeyCSelectsCapi) {
    start_menu();
    terminal_.type("c");
    EXPECT_EQ(finish(), "c\r\n");
    expect_selection("c", "1", "capi");
}

TEST_F(CryptoIfMenuTest, KeyPSelectsPkcs11) {
    start_menu();
    terminal_.type("p");
    EXPECT_EQ(finish(), "p\r\n");
    expect_selection("p", "2", "pkcs11");
}

TEST_F(CryptoIfMenuTest, KeySSelectsCapiStore) {
    start_menu();
    terminal_.type("s");
    EXPECT_EQ(finish(), "s\r\n");
    expect_selection("s", "3", "capi_store");
}

TEST_F(CryptoIfMenuTest, DotIsUserAbortAndDoesNotChangeTheArgument) {
    start_menu();
    terminal_.type(".");
    EXPECT_EQ(finish(), ".\r\n");
    EXPECT_EQ(results(), Lines{"crypto_if status=1 selected=77"});
    EXPECT_EQ(log(), (Lines{"<info> selected item: '.', obj=unknown",
                            "<error> ossl_scard_cfg_imp:371 "
                            "Kes::OsslScardCfgImp::select_crypto_if_from_console(): user abort: val=16 "
                            "(user_abort)"}));
}

TEST_F(CryptoIfMenuTest, ItemsShowTheConfiguredNames) {
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

TEST_F(CryptoIfMenuTest, ItemTextIsCutAfter4095Characters) {
    const std::string csp = std::string(9999, 'c') + "!";
    const std::string module = std::string(9999, 'm') + "!";
    const EnvVar csp_variable("MARVO_TEST_CSP_NAME", csp);
    const EnvVar module_variable("MARVO_TEST_MODULE", module);
    const std::string expected = menu_of(("capi (MS CryptoAPI with csp '" + csp).substr(0, 4095),
                                         ("pkcs11 (PKCS#11 with module '" + module).substr(0, 4095));
    start(MARVO_CONSOLE_CLIENT, {"crypto_if"});
    EXPECT_TRUE(terminal_.read_until(prompt) == on_screen(expected));
    terminal_.type("c");
    EXPECT_EQ(finish(), "c\r\n");
    expect_selection("c", "1", "capi");
}

TEST_F(CryptoIfMenuTest, KeyOfNoItemIsIgnoredWithoutOutput) {
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

TEST_F(CryptoIfMenuTest, UpperCaseLettersSelectNothing) {
    start_menu();
    terminal_.type("CPSs");
    EXPECT_EQ(finish(), "s\r\n");
    expect_selection("s", "3", "capi_store");
}

TEST_F(CryptoIfMenuTest, EnterSelectsNothing) {
    start_menu();
    terminal_.type("\r\n\rc");
    EXPECT_EQ(finish(), "c\r\n");
}

TEST_F(CryptoIfMenuTest, CtrlDSelectsNothing) {
    start_menu();
    terminal_.type("\x04"
                   "c");
    EXPECT_EQ(finish(), "c\r\n");
    expect_selection("c", "1", "capi");
}

TEST_F(CryptoIfMenuTest, HangUpIsUserAbort) {
    start_menu();
    terminal_.hang_up();
    EXPECT_EQ(terminal_.wait(), 0);
    expect_abort(menu_location + "user abort <end of input>: val=16 (user_abort)");
}

TEST_F(CryptoIfMenuTest, ClosedInputIsUserAbort) {
    EXPECT_EQ(run_without_terminal("exec <&- ;"), in_a_pipe(menu));
    expect_abort(menu_location + "user abort <end of input>: val=16 (user_abort)");
}

TEST_F(CryptoIfMenuTest, EmptyInputIsUserAbort) {
    EXPECT_EQ(run_without_terminal("exec </dev/null ;"), in_a_pipe(menu));
    expect_abort(menu_location + "user abort <end of input>: val=16 (user_abort)");
}

TEST_F(CryptoIfMenuTest, KeysTypedTogetherAnswerSuccessiveMenus) {
    start(MARVO_CONSOLE_CLIENT, {"crypto_if", "crypto_if"});
    EXPECT_EQ(terminal_.read_until(prompt), on_screen(menu));
    terminal_.type("xpys");
    EXPECT_EQ(finish(), on_screen("p\n" + menu + "s\n"));
    EXPECT_EQ(results(), (Lines{"crypto_if status=0 selected=2", "crypto_if status=0 selected=3"}));
}

} // namespace
} // namespace Kes::test
