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

/// A card behind a CryptoAPI provider, a server's certificate, and the CA that signs for both. The Windows
/// programs that the test starts have the card. At the end all that they took from the provider must have
/// been released.
class WindowsCapiTest : public testing::Test {
protected:
    WindowsCapiTest();
    void TearDown() override;

    /// A subject made for the test: "O=Makers,CN=" and the name.
    /// @param kind  "exchange" or "signature"
    void add_key_to_card(const std::string& kind, const std::string& name) const;

    static std::vector<std::string> command(const std::string& program,
                                            const std::vector<std::string>& arguments);

    /// Without the carriage returns of those lines that have one: when it loads a key, OpenSSL's engine
    /// switches the program's standard output to binary.
    static std::string with_unix_lines(std::string text);

    /// Runs a client; its output comes to output_.
    /// @return its exit status
    int run_client(const std::string& program, const std::vector<std::string>& arguments);

    /// Runs the example client: lists the keys, looks up the one with that name and logs in with it.
    /// @return its exit status
    int log_in(const Server& server, const std::string& key_name);

    /// How often the card has signed.
    long count_signatures() const;

    static std::string script() { return MARVO_PREPARE_CARD; }
    std::string container() const { return card() + "/login"; }
    std::string card() const { return dir_.file("card"); }

    TempDir dir_;
    std::string output_;
    std::string keys_; ///< as the client listed them

private:
    std::string calls() const { return read_file(card() + "/calls"); }

    EnvVar card_{"MARVO_CSP_CARD", "Z:" + card()};
    EnvVar ca_{"SSL_CERT_FILE", "Z:" + dir_.file("ca.crt")};
    EnvVar log_{"ossl_scard_cfg_logfile", "Z:" + dir_.file("client.log")};
};

/// The store "MY" of the user, empty at first and at the end. There is one of that name: one test at a time
/// may have it.
class MyStore {
public:
    MyStore() { clear(); }
    ~MyStore();
    MyStore(const MyStore&) = delete;
    MyStore& operator=(const MyStore&) = delete;

    /// Puts a certificate of the container "login" of a card into it, with its key there.
    void add_card_key(const std::string& card, const std::string& kind) const;

    /// The same with the key in a container of Windows' software provider.
    void add_software_key(const std::string& card, const std::string& kind) const;

private:
    static void clear();
};

} // namespace Kes::test

#endif // KES_TESTS_E2E_SERVERS_WINDOWS_CAPI_H_
