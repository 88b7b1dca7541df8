#include <algorithm>
#include <utility>

#include "support/process.h"
#include "support/terminal.h"
#include "windows_capi.h"

// Windows programs under Wine log in with CryptoAPI keys: those in a card's containers, and those of the
// certificates in the user's store. All settings except the back-end have their defaults.
namespace Kes::test {
namespace {

const std::string cipher = "ECDHE-ECDSA-AES256-GCM-SHA384";
const std::string session =
    "key: RSA 2048\nprotocol: TLSv1.2\ncipher: " + cipher + "\nsignature: rsaEncryption with SHA256\n";

std::string nginx_report(const std::string& name) {
    return "TLSv1.2, " + cipher + ", -, CN=" + name + ",O=Makers, SUCCESS\n";
}

std::string gnutls_report(const std::string& name) {
    return "TLS1.2, AES-256-GCM, RSA-SHA256, CN=" + name + ",O=Makers, The certificate is trusted. ";
}

std::string sorted_names(const std::string& keys) {
    std::vector<std::string> names;
    for (const std::string& line : split_lines(keys))
        names.push_back(line.substr(line.find(": ") + 2));
    std::sort(names.begin(), names.end());
    std::string text;
    for (const std::string& name : names)
        text += name + "\n";
    return text;
}

struct LoginCase {
    std::string name;
    std::string key;     ///< as in the client's list
    std::string subject; ///< the subject's common name
    long card_signatures;
};

void PrintTo(const LoginCase& login, std::ostream* stream) { *stream << login.name; }

/// Logs in with one of two keys.
class CapiLoginTest : public WindowsCapiTest, public testing::WithParamInterface<LoginCase> {
protected:
    /// @param backend  the value of the setting crypto_if
    /// @param names    the sorted names of all keys
    CapiLoginTest(const std::string& backend, std::string names)
        : backend_("ossl_scard_cfg_crypto_if", backend), names_(std::move(names)) {}

    void expect_login(const std::string& maker, const std::string& report) {
        const auto server = create_server(maker, ServerSetup(dir_.path()));
        EXPECT_EQ(log_in(*server, GetParam().key), 0);
        EXPECT_EQ(sorted_names(keys_), names_);
        EXPECT_EQ(before_answer(output_), keys_ + session);
        EXPECT_EQ(server->report(body_of(output_)), report);
        EXPECT_EQ(count_signatures(), GetParam().card_signatures);
    }

private:
    EnvVar backend_;
    const std::string names_;
};

class WindowsCapiLoginTest : public CapiLoginTest {
protected:
    WindowsCapiLoginTest() : CapiLoginTest("capi", "login (KEYEXCHANGE)\nlogin (SIGNATURE)\n") {
        add_key_to_card("exchange", "Egon");
        add_key_to_card("signature", "Rita");
    }
};

TEST_P(WindowsCapiLoginTest, NginxAcceptsTheKeyAndReportsItsSubject) {
    expect_login("nginx", nginx_report(GetParam().subject));
}

TEST_P(WindowsCapiLoginTest, GnutlsAcceptsTheKeyAndReportsItsSubject) {
    expect_login("gnutls", gnutls_report(GetParam().subject));
}

INSTANTIATE_TEST_SUITE_P(Keys, WindowsCapiLoginTest,
                         testing::Values(LoginCase{"SignatureKey", "login (SIGNATURE)", "Rita", 1},
                                         LoginCase{"ExchangeKey", "login (KEYEXCHANGE)", "Egon", 1}),
                         [](const auto& login) { return login.param.name; });

class WindowsMyStoreLoginTest : public CapiLoginTest {
protected:
    WindowsMyStoreLoginTest() : CapiLoginTest("capi_store", "Makers, Carla\nMakers, Stella\n") {
        add_key_to_card("exchange", "Stella");
        add_key_to_card("signature", "Carla");
        store_.add_software_key(card(), "exchange");
        store_.add_card_key(card(), "signature");
    }

    MyStore store_;
};

TEST_P(WindowsMyStoreLoginTest, NginxAcceptsTheKeyAndReportsItsSubject) {
    expect_login("nginx", nginx_report(GetParam().subject));
}

TEST_P(WindowsMyStoreLoginTest, GnutlsAcceptsTheKeyAndReportsItsSubject) {
    expect_login("gnutls", gnutls_report(GetParam().subject));
}

INSTANTIATE_TEST_SUITE_P(Keys, WindowsMyStoreLoginTest,
                         testing::Values(LoginCase{"SoftwareKey", "Makers, Stella", "Stella", 0},
                                         LoginCase{"CardKey", "Makers, Carla", "Carla", 1}),
                         [](const auto& login) { return login.param.name; });

/// The interactive client; its user's keys come from a pseudo-terminal.
class WindowsCapiConsoleTest : public WindowsCapiTest {
protected:
    WindowsCapiConsoleTest() { terminal_.pass_all_keys(); }

    /// Runs the interactive client and answers its two menus.
    /// @return the exit status
    int choose(const std::string& backend, const std::string& key) {
        terminal_.start_with_pipe(command("interactive_client", {}));
        output_ = terminal_.read_until("  => ");
        terminal_.type(backend);
        output_ += terminal_.read_until("  => ");
        terminal_.type(key);
        output_ = with_unix_lines(output_ + terminal_.read_to_end());
        return terminal_.wait();
    }

    /// The client's output after its menus.
    std::string certificate_text(const std::string& name, const std::string& file) const {
        return "subject: CN=" + name + ",O=Makers\nissuer:  CN=Soft token CA,O=Throw-away\n" +
               run_program(
                   {"/usr/bin/env", "openssl", "x509", "-inform", "DER", "-in", container() + "/" + file});
    }

    Terminal terminal_;
};

TEST_F(WindowsCapiConsoleTest, SelectedKeyOfTheCardHasItsCertificateShown) {
    add_key_to_card("exchange", "Egon");
    add_key_to_card("signature", "Rita");
    EXPECT_EQ(choose("c", "1"), 0);
    EXPECT_EQ(output_, menu_of_backends +
                           "c\n"
                           "\n"
                           "Please select from available keys:\n"
                           "   ( 0 ) ... login (KEYEXCHANGE)\n"
                           "   ( 1 ) ... login (SIGNATURE)\n"
                           "   ( . ) ... exit\n"
                           "  => 1\n" +
                           certificate_text("Rita", "2.der"));
}

class WindowsMyStoreConsoleTest : public WindowsCapiConsoleTest {
protected:
    MyStore store_;
};

TEST_F(WindowsMyStoreConsoleTest, SelectedKeyOfTheStoreHasItsCertificateShown) {
    add_key_to_card("signature", "Carla");
    store_.add_card_key(card(), "signature");
    EXPECT_EQ(choose("s", "0"), 0);
    EXPECT_EQ(output_, menu_of_backends +
                           "s\n"
                           "\n"
                           "Please select from available keys:\n"
                           "   ( 0 ) ... Makers, Carla\n"
                           "   ( . ) ... exit\n"
                           "  => 0\n" +
                           certificate_text("Carla", "2.der"));
}

} // namespace
} // namespace Kes::test
