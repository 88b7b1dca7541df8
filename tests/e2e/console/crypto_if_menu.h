#ifndef KES_TESTS_E2E_CONSOLE_CRYPTO_IF_MENU_H_
#define KES_TESTS_E2E_CONSOLE_CRYPTO_IF_MENU_H_

#include "console_fixture.h"
#include "support/process.h"

namespace Kes::test {

inline std::string menu_of(const std::string& capi, const std::string& pkcs11) {
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

    /// Runs the client without a terminal.
    /// @param redirection  a shell redirection that provides its input
    /// @return its output, with the line ends of its system
    std::string run_without_terminal(const std::string& redirection) {
        std::string line = "exec";
        for (const std::string& word : command(MARVO_CONSOLE_CLIENT, {"crypto_if"}))
            line += " '" + word + "'";
        return shell_output(redirection + " " + line);
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

} // namespace Kes::test

#endif // KES_TESTS_E2E_CONSOLE_CRYPTO_IF_MENU_H_
