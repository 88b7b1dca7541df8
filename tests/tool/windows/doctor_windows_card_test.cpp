// The command doctor on Windows, with mistakes on the card, in the filter and in the key in effect.
#include "doctor_windows_run.h"

#include <fstream>
#include <regex>

#include "support/certificates.h"

namespace Kes::test {
namespace {

const std::string key_name =
    "'Card 1: Login' (id %01, RSA 2048, CN=Rita RSA,O=Test Makers,C=AT, N days left)";

/// The lines with "N" in place of the number of days, which depends on the day of the test.
Lines without_days(Lines lines) {
    for (std::string& line : lines)
        line = std::regex_replace(line, std::regex("[0-9]+ days left"), "N days left");
    return lines;
}

class DoctorWindowsCardTest : public DoctorWindowsTest {
protected:
    /// The options for a login with this PIN.
    std::string with_pin(const char* pin = card_pin) const {
        std::ofstream(dir_.file("pin")) << pin;
        return "--pin-file \"" + dir_.file("pin") + "\"";
    }

    std::ptrdiff_t logins() const {
        const Lines record = card_.record();
        return std::count_if(record.begin(), record.end(), [](const std::string& line) {
            return line.find("PKCS11_login(") != std::string::npos;
        });
    }
};

TEST_F(DoctorWindowsCardTest, LoginShowsTheKey) {
    EXPECT_EQ(mistakes(with_pin()), Lines{});
    EXPECT_EQ(without_days(lines("keys", with_pin())), Lines{"ok      keys: " + key_name + ": offered."});
    EXPECT_EQ(logins(), 2) << "one for each of the two runs";
}

TEST_F(DoctorWindowsCardTest, WrongPinIsReported) {
    EXPECT_EQ(
        mistakes(with_pin("13572468")),
        Lines{
            "error   login: libp11_helper:190 Kes::Libp11Init::authenticate(): PKCS11_login() failed: rc=-1; "
            "PKCS#11 module: PIN incorrect: PKCS11_login. Remedy: If the PIN is incorrect, find out the "
            "right one before the "
            "next try: each wrong PIN brings the card closer to being locked."});
}

TEST_F(DoctorWindowsCardTest, TokenWithItsFinalTryGetsNoPin) {
    card_.set("pin_final_try", "1");
    EXPECT_EQ(
        mistakes(with_pin()),
        (Lines{
            "warning card: one more wrong PIN locks the token. Remedy: Find out the right PIN before the "
            "next try, which resets the count; if nobody knows it, reset the PIN with the tool of the card's "
            "maker.",
            "warning login: not tried: the token reports its final try, and a wrong PIN would lock it. "
            "Remedy: See the line of the check 'card'; with the right PIN, marvo list --login --final-try "
            "resets the count."}));
    EXPECT_EQ(logins(), 0);
}

TEST_F(DoctorWindowsCardTest, LockedTokenGetsNoPin) {
    card_.set("pin_locked", "1");
    EXPECT_EQ(mistakes(with_pin()),
              Lines{"error   card: the PIN is locked. Remedy: Unlock or reset it with the "
                    "tool of the card's maker."});
    EXPECT_EQ(logins(), 0);
}

TEST_F(DoctorWindowsCardTest, SecondTokenIsReported) {
    card_.set("second_label", "Card 2");
    EXPECT_EQ(
        mistakes(),
        Lines{
            "warning card: not used, because the library takes the first token: token 'Card 2' (Card maker, "
            "Model 7, serial number 0042) in reader 'Slot 2'. Remedy: If the wrong card is used, remove it "
            "or its reader."});
}

TEST_F(DoctorWindowsCardTest, MissingCardIsReported) {
    card_.pull_out();
    EXPECT_EQ(
        mistakes(),
        Lines{"error   card: libp11_helper:140 Kes::Libp11Init::read_scard(): PKCS11_find_token() "
              "failed: val=11 (empty). Remedy: Insert the card, and check that its reader is connected and "
              "its driver installed."});
}

TEST_F(DoctorWindowsCardTest, FilterThatRejectsEveryKeyIsReported) {
    set("key_usage_filter_type", "1");
    set("key_usage_filter", "4");
    EXPECT_EQ(
        without_days(mistakes(with_pin())),
        (Lines{
            "warning keys: " + key_name +
                ": not offered: the filter wants keyCertSign, the certificate has digitalSignature, "
                "keyEncipherment. Remedy: If this key is needed, change the filter settings of the client.",
            "error   keys: the library offers none of these keys. Remedy: The remedies of the lines above "
            "say how to change this."}));
}

TEST_F(DoctorWindowsCardTest, KeyWithoutCertificateIsReported) {
    card_.add("02", "kp", "rsa", "Lone");
    EXPECT_EQ(
        mistakes(with_pin()),
        Lines{"warning keys: 'Card 1: Lone' (id %02): not offered: no certificate on the token has its id. "
              "Remedy: Store its certificate on the card, under the same id."});
}

TEST_F(DoctorWindowsCardTest, ExpiredCertificateIsReported) {
    expire_certificate(card_.folder() / "rsa");
    EXPECT_EQ(mistakes(with_pin()),
              Lines{"error   keys: 'Card 1: Login' (id %01, RSA 2048, CN=Rita RSA,O=Test Makers,C=AT): "
                    "offered; expired yesterday. Remedy: Have a new certificate issued."});
}

TEST_F(DoctorWindowsCardTest, UnknownKeyIdIsReported) {
    EXPECT_EQ(mistakes("--key %99"), Lines{"error   key in effect: the key %99 is not on the card. "
                                           "Remedy: Use an id of the lines of the check "
                                           "'keys', exactly as it is written there."});
}

TEST_F(DoctorWindowsCardTest, LoadWithoutAChosenKeyIsNoted) {
    EXPECT_EQ(
        lines("key in effect"),
        Lines{"note    key in effect: the setting priv_key_name is empty, so ossl_load() fails without a "
              "set_key(). Remedy: Let the client call set_key() before notify_config_done(); --key ID checks "
              "an id."});
}

} // namespace
} // namespace Kes::test
