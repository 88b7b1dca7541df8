#ifndef KES_TESTS_E2E_SERVERS_WINDOWS_CAPI_H_
#define KES_TESTS_E2E_SERVERS_WINDOWS_CAPI_H_

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include "server.h"
#include "support/support.h"
#include "windows_program.h"

namespace Kes::test {

/// A card of the CryptoAPI provider, a server certificate, and the CA that issues the certificates of both.
/// The Windows programs that the test starts use this card. The fixture fails the test if they do not release
/// everything that they acquire from the provider.
class WindowsCapiTest : public testing::Test {
protected:
    WindowsCapiTest();
    void TearDown() override;

    /// Adds a key whose certificate has the subject "O=Makers,CN=<name>".
    /// @param kind  "exchange" or "signature"
    void add_key_to_card(const std::string& kind, const std::string& name) const;

    static std::vector<std::string> command(const std::string& program,
                                            const std::vector<std::string>& arguments);

    /// Removes all carriage returns. Only some lines have one: when it loads a key, OpenSSL's engine switches
    /// the program's standard output to binary mode.
    static std::string with_unix_lines(std::string text);

    /// Runs a client and stores its output in output_.
    /// @return its exit status
    int run_client(const std::string& program, const std::vector<std::string>& arguments);

    /// Runs the example client twice: to list the keys, and to log in with the key of that name.
    /// @return its exit status
    int log_in(const Server& server, const std::string& key_name);

    /// The number of signatures that the card has made.
    long count_signatures() const;

    static std::string script() { return MARVO_PREPARE_CARD; }
    std::string container() const { return card() + "/login"; }
    std::string card() const { return dir_.file("card"); }

    TempDir dir_;
    std::string output_;
    std::string keys_; ///< the list that the client printed

private:
    std::string calls() const { return read_file(card() + "/calls"); }

    EnvVar card_{"MARVO_CSP_CARD", "Z:" + card()};
    EnvVar ca_{"SSL_CERT_FILE", "Z:" + dir_.file("ca.crt")};
    EnvVar log_{"ossl_scard_cfg_logfile", "Z:" + dir_.file("client.log")};
};

/// The user's certificate store "MY", emptied by constructor and destructor. All tests share it, so only one
/// test at a time may use it.
class MyStore {
public:
    MyStore() { clear(); }
    ~MyStore();
    MyStore(const MyStore&) = delete;
    MyStore& operator=(const MyStore&) = delete;

    /// Adds the certificate of the card's container "login", linked to the key on the card.
    void add_card_key(const std::string& card, const std::string& kind) const;

    /// Adds the same certificate, linked to a copy of the key in Windows' software provider.
    void add_software_key(const std::string& card, const std::string& kind) const;

private:
    static void clear();
};

} // namespace Kes::test

#endif // KES_TESTS_E2E_SERVERS_WINDOWS_CAPI_H_
