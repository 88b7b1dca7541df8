// The command doctor with mistakes on the card, in the filter and in the key that the client will use.
#include "doctor_run.h"

#include <algorithm>
#include <regex>

#include <nlohmann/json.hpp>

#include "json_schema.h"
#include "support/certificates.h"

namespace Kes::test {
namespace {

const std::string pin = std::string(file_token_pin) + "\n";
const std::string key_name =
    "'Card 1: Login' (id %01, RSA 2048, CN=Rita RSA,O=Test Makers,C=AT, N days left)";

/// The lines with "N" in place of the number of days, which depends on the day of the test.
Lines without_days(Lines lines) {
    for (std::string& line : lines)
        line = std::regex_replace(line, std::regex("[0-9]+ days left"), "N days left");
    return lines;
}

class DoctorCardTest : public DoctorTest {
protected:
    std::ptrdiff_t logins() const {
        const Lines calls = tokens_.calls();
        return std::count_if(calls.begin(), calls.end(), [](const std::string& call) {
            return call.find(" C_Login#") != std::string::npos;
        });
    }
};

TEST_F(DoctorCardTest, LoginShowsCardAndKeys) {
    const ToolRun doctor = run({"--pin-stdin"}, pin);
    EXPECT_EQ(mistakes(doctor), Lines{});
    EXPECT_EQ(lines(doctor, "card"),
              Lines{"ok      card: token 'Card 1' (Card maker, Model 7, serial number 0042) in "
                    "reader 'Reader A'."});
    EXPECT_EQ(lines(doctor, "login"), Lines{"ok      login: the PIN is right."});
    EXPECT_EQ(without_days(lines(doctor, "keys")), Lines{"ok      keys: " + key_name + ": offered."});
    EXPECT_EQ(lines(doctor, "TLS"),
              Lines{"ok      TLS: the key %01 can serve TLS 1.2 with rsa_pkcs1_sha256, rsa_pkcs1_sha384 and "
                    "rsa_pkcs1_sha512, TLS 1.2 and 1.3 with rsa_pss_rsae_sha256, rsa_pss_rsae_sha384 and "
                    "rsa_pss_rsae_sha512."});
    EXPECT_EQ(logins(), 1);
}

TEST_F(DoctorCardTest, WithoutAnOptionNoLoginIsTried) {
    const ToolRun doctor = run();
    EXPECT_EQ(mistakes(doctor), Lines{});
    EXPECT_EQ(lines(doctor, "login"),
              Lines{"note    login: not tried, because no option asks for it. Remedy: Add "
                    "--login to try the PIN once, and to see all keys."});
    EXPECT_EQ(logins(), 0);
}

TEST_F(DoctorCardTest, WrongPinIsTriedOnceAndNotShown) {
    const ToolRun doctor = run({"--pin-stdin"}, "13572468\n");
    EXPECT_EQ(
        mistakes(doctor),
        Lines{
            "error   login: libp11_helper:190 Kes::Libp11Init::authenticate(): PKCS11_login() failed: rc=-1; "
            "PKCS#11 module: PIN incorrect. Remedy: If the PIN is incorrect, find out the right one before "
            "the next try: each wrong PIN brings the card closer to being locked."});
    EXPECT_EQ(logins(), 1);
    EXPECT_EQ((doctor.output + doctor.errors).find("13572468"), std::string::npos);
    EXPECT_EQ(doctor.status, 3);
}

TEST_F(DoctorCardTest, TokenWithItsFinalTryGetsNoPin) {
    token_.set("pin_final_try", "1");
    const ToolRun doctor = run({"--pin-stdin"}, pin);
    EXPECT_EQ(
        mistakes(doctor),
        (Lines{"warning card: one more wrong PIN locks the token. Remedy: Find out the right PIN before the "
               "next "
               "try, which resets the count; if nobody knows it, reset the PIN with the tool of the card's "
               "maker.",
               "warning login: not tried: the token reports its final try, and a wrong PIN would lock it. "
               "Remedy: See the line of the check 'card'; with the right PIN, marvo list --login --final-try "
               "resets the count."}));
    EXPECT_EQ(logins(), 0);
}

TEST_F(DoctorCardTest, LockedTokenGetsNoPin) {
    token_.set("pin_locked", "1");
    const ToolRun doctor = run({"--pin-stdin"}, pin);
    EXPECT_EQ(mistakes(doctor), (Lines{"error   card: the PIN is locked. Remedy: Unlock or reset it with the "
                                       "tool of the card's maker."}));
    EXPECT_EQ(logins(), 0);
}

TEST_F(DoctorCardTest, SecondTokenIsReported) {
    FileToken second = tokens_.add_token("Reader B");
    second.set("label", "Card 2");
    second.set("serial", "0043");
    EXPECT_EQ(
        mistakes(run()),
        Lines{
            "warning card: not used, because the library takes the first token: token 'Card 2' (Card maker, "
            "Model 7, serial number 0043) in reader 'Reader B'. Remedy: If the wrong card is used, remove it "
            "or its reader."});
}

TEST_F(DoctorCardTest, MissingCardIsReported) {
    std::filesystem::remove(token_.folder() / "token"); // an empty reader
    EXPECT_EQ(mistakes(run()),
              Lines{"error   card: libp11_helper:140 Kes::Libp11Init::read_scard(): PKCS11_find_token() "
                    "failed: val=11 "
                    "(empty). Remedy: Insert the card, and check that its reader is connected and its driver "
                    "installed."});
}

TEST_F(DoctorCardTest, FilterThatRejectsEveryKeyIsReported) {
    set("key_usage_filter_type", "1");
    set("key_usage_filter", "4");
    EXPECT_EQ(
        without_days(mistakes(run({"--pin-stdin"}, pin))),
        (Lines{
            "warning keys: " + key_name +
                ": not offered: the filter wants keyCertSign, the certificate has digitalSignature, "
                "keyEncipherment. Remedy: If this key is needed, change the filter settings of the client.",
            "error   keys: the library offers none of these keys. Remedy: The remedies of the lines above "
            "say how to change this."}));
}

TEST_F(DoctorCardTest, FailedScanIsReported) {
    tokens_.fail({"C_FindObjectsInit=0x30"});
    const ToolRun doctor = run();
    EXPECT_EQ(mistakes(doctor),
              Lines{"error   scan: pko_id_scanner_pkcs11_libp11:71 Kes::Pkcs11Libp11PkoIdScanner::scan(): "
                    "PKCS11_enumerate_certs() failed: rc=-1; PKCS#11 module: Device error. Remedy: Look up "
                    "the message "
                    "in docs/messages.md."});
    EXPECT_EQ(lines(doctor, "TLS"), Lines{"skipped TLS: not checked because of the check 'scan'."});
}

TEST_F(DoctorCardTest, KeyWithoutCertificateIsReported) {
    token_.add("02", "kp", "rsa", "Lone");
    EXPECT_EQ(
        mistakes(run({"--pin-stdin"}, pin)),
        Lines{"warning keys: 'Card 1: Lone' (id %02): not offered: no certificate on the token has its id. "
              "Remedy: Store its certificate on the card, under the same id."});
}

TEST_F(DoctorCardTest, ExpiredCertificateIsReported) {
    expire_certificate(token_.folder() / "rsa");
    EXPECT_EQ(mistakes(run({"--pin-stdin"}, pin)),
              Lines{"error   keys: 'Card 1: Login' (id %01, RSA 2048, CN=Rita RSA,O=Test Makers,C=AT): "
                    "offered; expired "
                    "yesterday. Remedy: Have a new certificate issued."});
}

TEST_F(DoctorCardTest, ExpiredCertificateBesideAGoodOneIsAWarning) {
    token_.add("02", "ckp", "ec", "Other");
    expire_certificate(token_.folder() / "rsa");
    const ToolRun doctor = run({"--pin-stdin"}, pin);
    EXPECT_EQ(mistakes(doctor),
              Lines{"warning keys: 'Card 1: Login' (id %01, RSA 2048, CN=Rita RSA,O=Test Makers,C=AT): "
                    "offered; expired yesterday. Remedy: Have a new certificate issued."});
    EXPECT_EQ(doctor.status, 0);
}

TEST_F(DoctorCardTest, ExpiredCertificateOfTheKeyInEffectIsAnError) {
    token_.add("02", "ckp", "ec", "Other");
    expire_certificate(token_.folder() / "rsa");
    const ToolRun doctor = run({"--pin-stdin", "--key", "%01"}, pin);
    EXPECT_EQ(lines(doctor, "key in effect"),
              Lines{"error   key in effect: the key %01 is offered; expired yesterday. Remedy: Have a new "
                    "certificate issued."});
    EXPECT_EQ(doctor.status, 3);
}

TEST_F(DoctorCardTest, UnknownKeyIdIsReported) {
    EXPECT_EQ(mistakes(run({"--key", "%99"})), Lines{"error   key in effect: the key %99 is not on the card. "
                                                     "Remedy: Use an id of the lines of the check "
                                                     "'keys', exactly as it is written there."});
    EXPECT_EQ(lines(run({"--key", "%01"}), "key in effect"),
              Lines{"ok      key in effect: the key %01 is offered."});
}

TEST_F(DoctorCardTest, KeyInEffectHasExactlyTheIdOfItsName) {
    token_.add("", "ck", "ec", "Without id");
    for (const std::string name :
         {"pkcs11:token=Card 1;id=%01;type=private", "pkcs11:id=%01", "pkcs11:id=%"}) {
        const EnvVar variable("ossl_scard_cfg_priv_key_name", name);
        EXPECT_EQ(lines(run(), "key in effect"),
                  Lines{"ok      key in effect: the key of priv_key_name (" + name + ") is offered."});
    }
    for (const std::string name : {"pkcs11:id=%01%FF;type=private", "pkcs11:id=%FF%01",
                                   "pkcs11:token=Card 2;id=%01", "%02", "pkcs11:"}) {
        const EnvVar variable("ossl_scard_cfg_priv_key_name", name);
        EXPECT_EQ(
            lines(run(), "key in effect"),
            Lines{"error   key in effect: the key of priv_key_name (" + name +
                  ") is not on the card. Remedy: Use an id of the lines of the check 'keys', exactly as it "
                  "is written there."});
    }
}

TEST_F(DoctorCardTest, LoadWithoutAChosenKeyIsNoted) {
    EXPECT_EQ(
        lines(run(), "key in effect"),
        Lines{"note    key in effect: the setting priv_key_name is empty, so ossl_load() fails without a "
              "set_key(). Remedy: Let the client call set_key() before notify_config_done(); --key ID checks "
              "an "
              "id."});
}

TEST_F(DoctorCardTest, JsonLeavesOutPersonalDataUnlessAsked) {
    const ToolRun without = run({"--pin-stdin", "--json"}, pin);
    for (const char* name : {"Rita", "0042", "Card 1", "Test Makers"})
        EXPECT_EQ(without.output.find(name), std::string::npos) << name;
    EXPECT_EQ(without.json()["command"], "doctor");
    EXPECT_EQ(without.json()["errors"], 0);
    const ToolRun with = run({"--pin-stdin", "--json", "--with-names"}, pin);
    for (const char* name : {"Rita", "0042", "Card 1"})
        EXPECT_NE(with.output.find(name), std::string::npos) << name;
    EXPECT_EQ(without.json()["findings"].size(), with.json()["findings"].size());
}

TEST_F(DoctorCardTest, JsonFollowsItsSchema) {
    token_.set("pin_locked", "1"); // for findings of several states
    EXPECT_EQ(schema_violations("doctor", run({"--json"}).output), "");
}

} // namespace
} // namespace Kes::test
