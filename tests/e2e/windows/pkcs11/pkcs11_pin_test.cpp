// How the pkcs11 back-end uses the PIN, and the errors for a wrong or missing one.
#include <algorithm>
#include <regex>

#include "pkcs11_client_fixture.h"

namespace Kes::test {
namespace {

constexpr const char* wrong_pin = "13572468";
constexpr const char* no_pin_text =
    "libp11_helper:185 Kes::Libp11Init::authenticate(): no PIN specified: val=11 (empty)";

std::size_t logins(const Lines& steps) {
    return static_cast<std::size_t>(std::count_if(
        steps.begin(), steps.end(), [](const std::string& step) { return step.starts_with("card.login("); }));
}

using Pkcs11PinTest = Pkcs11ClientTest;

TEST_F(Pkcs11PinTest, WrongPinIsReportedWithTheErrorOfLibp11) {
    ASSERT_TRUE(read());
    EXPECT_FALSE(discover(wrong_pin));
    // The thread and the error library's number differ between runs. 0xa0 is PKCS#11's code for a wrong PIN.
    const std::regex number("^(.*\n)[0-9A-F]+:error:4[0-9A-F]{2}([0-9A-F]{5}):");
    EXPECT_EQ(std::regex_replace(error(), number, "$1THREAD:error:LIBRARY$2:"),
              "libp11_helper:190 Kes::Libp11Init::authenticate(): PKCS11_login() failed: rc=-1\n"
              "THREAD:error:LIBRARY000A0:PKCS#11 module:PKCS11_login:PIN incorrect:double:1:PKCS11_login");
}

TEST_F(Pkcs11PinTest, RightPinAfterWrongPinWorks) {
    ASSERT_TRUE(read());
    EXPECT_FALSE(discover(wrong_pin));
    ASSERT_TRUE(discover());
    ASSERT_TRUE(load());
    EXPECT_EQ(signing_problem(key(), certificate()), "");
    EXPECT_EQ(logins(card.steps()), 2U);
}

TEST_F(Pkcs11PinTest, EmptyPinFailsTheDiscoveryWithoutLoginAtTheCard) {
    ASSERT_TRUE(read());
    EXPECT_FALSE(discover(""));
    EXPECT_EQ(error(), no_pin_text);
    EXPECT_EQ(logins(card.steps()), 0U);
}

TEST_F(Pkcs11PinTest, MissingPinFailsTheDiscoveryWithoutLoginAtTheCard) {
    ASSERT_TRUE(read());
    EXPECT_EQ(scard().discover_keys(&num_keys), 1);
    EXPECT_EQ(error(), no_pin_text);
    EXPECT_EQ(logins(card.steps()), 0U);
}

/// Configures the key by name instead of discovering it.
class Pkcs11LoadWithoutDiscoveryTest : public Pkcs11ClientTest {
protected:
    ::testing::AssertionResult configure(const char* pin) {
        OsslScardCfg* cfg = make_config();
        cfg->set_priv_key_name(private_uri);
        cfg->set_cert_name(cert_uri);
        if (scard().init(cfg) == 0 && scard().read_scard() == 0 &&
            (pin == nullptr || scard().set_pin(pin) == 0) && scard().notify_config_done() == 0)
            return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << error();
    }
};

TEST_F(Pkcs11LoadWithoutDiscoveryTest, EngineLogsIn) {
    ASSERT_TRUE(configure(card_pin));
    ASSERT_EQ(scard().ossl_load(), 0) << error();
    EXPECT_EQ(signing_problem(key(), certificate()), "");
    EXPECT_EQ(logins(card.steps()), 1U);
}

TEST_F(Pkcs11LoadWithoutDiscoveryTest, LoadFailsWithAWrongPin) {
    ASSERT_TRUE(configure(wrong_pin));
    EXPECT_EQ(scard().ossl_load(), 1);
    EXPECT_EQ(masked_error(),
              "ossl_engine:79 Kes::OsslEngine::read_private_key(): ENGINE_load_private_key() failed: rc=0\n"
              "error:PKCS#11 module:PIN incorrect:engine.load_privkey\n"
              "error:engine routines:failed loading private key:");
    EXPECT_EQ(logins(card.steps()), 1U);
    // If the engine could prompt for a PIN now, the test double would record a violation.
    EXPECT_EQ(scard().ossl_load(), 1);
    EXPECT_EQ(logins(card.steps()), 2U);
}

TEST_F(Pkcs11LoadWithoutDiscoveryTest, EachLoadWithoutPinSendsAnEmptyPinToTheCard) {
    std::size_t expected_logins = 0;
    for (const char* pin : {static_cast<const char*>(nullptr), ""}) {
        ASSERT_TRUE(configure(pin));
        EXPECT_TRUE(scard().is_pin_required());
        EXPECT_EQ(scard().ossl_load(), 1);
        EXPECT_EQ(
            masked_error(),
            "ossl_engine:79 Kes::OsslEngine::read_private_key(): ENGINE_load_private_key() failed: rc=0\n"
            "error:PKCS#11 module:PIN incorrect:engine.load_privkey\n"
            "error:engine routines:failed loading private key:");
        EXPECT_EQ(logins(card.steps()), ++expected_logins);
        scard().destroy();
    }
}

TEST_F(Pkcs11PinTest, ReaderWithPinPadNeverGetsAPin) {
    card.set("pin_pad", "1");
    ASSERT_TRUE(read());
    EXPECT_FALSE(scard().is_pin_required());
    ASSERT_EQ(scard().discover_keys(&num_keys), 0) << error();
    EXPECT_EQ(num_keys, 0U); // no PIN was entered on the pad
    EXPECT_EQ(logins(card.steps()), 0U);
}

TEST_F(Pkcs11PinTest, DestroyClearsTheEnginesPinAndNoFileContainsOne) {
    ASSERT_TRUE(read());
    ASSERT_TRUE(discover(wrong_pin) || discover());
    ASSERT_TRUE(load());
    scard().destroy();
    const Lines steps = card.steps();
    const auto last = std::find_if(steps.rbegin(), steps.rend(),
                                   [](const std::string& step) { return step.starts_with("engine.PIN("); });
    ASSERT_NE(last, steps.rend());
    EXPECT_EQ(*last, "engine.PIN(empty pin)");
    std::string record;
    for (const std::string& line : card.record())
        record += line + '\n';
    for (const std::string& text : {record, log()}) {
        EXPECT_NE(text, "");
        EXPECT_EQ(text.find(card_pin), std::string::npos);
        EXPECT_EQ(text.find(wrong_pin), std::string::npos);
    }
}

} // namespace
} // namespace Kes::test
