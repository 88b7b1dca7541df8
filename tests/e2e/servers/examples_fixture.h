#ifndef KES_TESTS_E2E_SERVERS_EXAMPLES_FIXTURE_H_
#define KES_TESTS_E2E_SERVERS_EXAMPLES_FIXTURE_H_

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "card.h"
#include "server.h"
#include "support/terminal.h"

namespace Kes::test {

/// Runs the example programs in a terminal, with a card that has one key.
class ExamplesTest : public testing::Test {
protected:
    void type_pin(const std::string& pin) {
        transcript_ += terminal_.read_until("PIN: ");
        terminal_.wait_until_echo_is_off(); // the client shows the prompt before it turns the echo off
        terminal_.type(pin + "\n");
    }

    void interrupt_at_pin() {
        transcript_ += terminal_.read_until("PIN: ");
        terminal_.wait_until_echo_is_off();
        terminal_.type("\x03"); // CTRL-C
    }

    /// @return the exit code
    int finish() {
        transcript_ += terminal_.read_to_end();
        return terminal_.wait();
    }

    /// Starts a program that must end without asking for the PIN.
    /// @return the exit code
    int run_to_end(const std::vector<std::string>& command) {
        Terminal terminal;
        terminal.start(command);
        transcript_ = terminal.read_to_end();
        return terminal.wait();
    }

    /// Starts tls_client with the key of the card in use. The address leads to no server.
    /// @return the exit code
    int check_key(const std::string& key) {
        terminal_.start({TLS_CLIENT_PROGRAM, key, "127.0.0.1", "1", "1.3"});
        type_pin(card_.pin());
        return finish();
    }

    /// Whether the terminal has shown the text.
    testing::AssertionResult has_shown(const std::string& text) const {
        if (transcript_.find(text) != std::string::npos) return testing::AssertionSuccess();
        return testing::AssertionFailure() << "not shown; the whole transcript is:\n" << transcript_;
    }

    Card card_{"ec:P-256", "/CN=Mary Ross"};
    EnvVar module_{"ossl_scard_cfg_pkcs11_module_dll", soft_token({"module"})};
    EnvVar engine_{"ossl_scard_cfg_pkcs11_openssl_engine_dll", soft_token({"engine"})};
    EnvVar log_{"ossl_scard_cfg_logfile", card_.file("client.log")};
    EnvVar ca_{"SSL_CERT_FILE", card_.ca_file()};
    Terminal terminal_;
    std::string transcript_;
};

} // namespace Kes::test

#endif // KES_TESTS_E2E_SERVERS_EXAMPLES_FIXTURE_H_
