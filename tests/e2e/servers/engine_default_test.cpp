// Logins after the client has removed libp11's engine from the defaults for key methods, and logins with a
// TPM, whose PKCS#11 module uses OpenSSL itself.
#include <gtest/gtest.h>

#include "card.h"
#include "login.h"
#include "server.h"
#include "support/software_keys.h"
#include "tpm.h"

namespace Kes::test {
namespace {

const std::string subject = "CN=Ada Lovelace";

struct KeyCase {
    const char* name;
    const char* card_type; ///< as an argument of Card
    const char* tpm_type;  ///< as an argument of Tpm
    const char* signatures;
};

void PrintTo(const KeyCase& key, std::ostream* out) { *out << key.name; }

constexpr KeyCase rsa = {"Rsa", "rsa:2048", "rsa:2048", "RSA-PSS+SHA256"};
constexpr KeyCase ec = {"Ec", "ec:P-256", "EC:prime256v1", "ECDSA+SHA256"};

/// Logs in to nginx with each protocol.
/// @return for each, the answer with the client's subject and the verdict, or the error
std::string log_in_twice(const LoadedKey& loaded, const Server& server, const std::string& ca_file,
                         const KeyCase& key_case) {
    std::string answers;
    for (const int protocol : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        LoginOptions options;
        options.port = server.port();
        options.protocol = protocol;
        options.ca_file = ca_file;
        options.signatures = key_case.signatures;
        options.key = loaded.key();
        options.cert = loaded.cert();
        const Login login = log_in(options);
        answers += (login.error.empty() ? login.body : login.error) + "\n";
    }
    return answers;
}

const std::string both_accepted = "TLSv1.2, ECDHE-ECDSA-AES256-GCM-SHA384, -, " + subject +
                                  ", SUCCESS\nTLSv1.3, TLS_AES_256_GCM_SHA384, -, " + subject + ", SUCCESS\n";

class EngineDefaultTest : public testing::TestWithParam<KeyCase> {
protected:
    template <typename CardType>
    void check_logins_without_key_methods(const CardType& card) {
        const auto server = create_server("nginx", card.server_setup());
        for (int lifetime = 0; lifetime < 3; ++lifetime) {
            SCOPED_TRACE(lifetime);
            const LoadedKey loaded(card.access());
            unregister_key_methods("pkcs11");
            EXPECT_EQ(log_in_twice(loaded, *server, card.ca_file(), GetParam()), both_accepted);
        }
    }
};

TEST_P(EngineDefaultTest, CardLogsInWithoutTheKeyMethodsInEveryLifetime) {
    check_logins_without_key_methods(Card(GetParam().card_type, "/" + subject));
}

TEST_P(EngineDefaultTest, TpmLogsInWithoutTheKeyMethodsInEveryLifetime) {
    check_logins_without_key_methods(Tpm(GetParam().tpm_type, "/" + subject));
}

INSTANTIATE_TEST_SUITE_P(Keys, EngineDefaultTest, testing::Values(rsa, ec),
                         [](const auto& test) { return test.param.name; });

TEST(TpmTest, RsaKeyFailsInTheHandshakeUntilTheKeyMethodsAreUnregistered) {
    const Tpm tpm(rsa.tpm_type, "/" + subject);
    const auto server = create_server("nginx", tpm.server_setup());
    const LoadedKey loaded(tpm.access());
    EXPECT_EQ(log_in_twice(loaded, *server, tpm.ca_file(), rsa), "Host memory error\nHost memory error\n");
    unregister_key_methods("pkcs11");
    EXPECT_EQ(log_in_twice(loaded, *server, tpm.ca_file(), rsa), both_accepted);
}

TEST(TpmTest, EcKeyLogsInWithTheKeyMethods) {
    const Tpm tpm(ec.tpm_type, "/" + subject);
    const auto server = create_server("nginx", tpm.server_setup());
    const LoadedKey loaded(tpm.access());
    EXPECT_EQ(log_in_twice(loaded, *server, tpm.ca_file(), ec), both_accepted);
}

} // namespace
} // namespace Kes::test
