#include "windows_capi.h"

// The first clients in C and C++ as Windows programs under Wine. They ask for no PIN, because the key is one of
// CryptoAPI, and the server also supports TLS 1.3, with which such a key could not log in.
namespace Kes::test {
namespace {

class WindowsCapiFirstClientsTest : public WindowsCapiTest {
protected:
    WindowsCapiFirstClientsTest() { add_key_to_card("exchange", "Carla exchange"); }

    /// Logs in at nginx.
    /// @return the client's output
    std::string log_in_with(const std::string& program) {
        const auto server = create_server("nginx", ServerSetup(dir_.path()));
        EXPECT_EQ(run_client(program, {"127.0.0.1", std::to_string(server->port())}), 0);
        return output_;
    }

    /// Whether the client's output ends with the answer of the server.
    testing::AssertionResult has_logged_in(const std::string& output) const {
        const std::string answer =
            "TLSv1.2, ECDHE-ECDSA-AES256-GCM-SHA384, -, CN=Carla exchange,O=Makers, SUCCESS";
        if (output.find(answer) != std::string::npos) return testing::AssertionSuccess();
        return testing::AssertionFailure() << output;
    }

    EnvVar backend_{"ossl_scard_cfg_crypto_if", "capi"};
};

TEST_F(WindowsCapiFirstClientsTest, ClientInCLogsIn) { EXPECT_TRUE(has_logged_in(log_in_with("login_c"))); }

TEST_F(WindowsCapiFirstClientsTest, ClientInCxxLogsInAndShowsTheKeysContainerAndType) {
    const std::string output = log_in_with("login_cxx");
    EXPECT_TRUE(has_logged_in(output));
    EXPECT_EQ(output.find("key: login (KEYEXCHANGE), type 1, id login\n"
                          "certificate: CN=Carla exchange,O=Makers\n"),
              0U)
        << output;
}

} // namespace
} // namespace Kes::test
