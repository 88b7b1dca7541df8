// Parts of the command doctor that a whole run on this system cannot reach.
#include <gtest/gtest.h>
#include <openssl/ssl.h>
#include <stdexcept>

#include "support/support.h"
#include "tool/doctor/checks.h"
#include "tool/doctor/tls_abilities.h"
#include "tool/pin_options.h"
#include "tool/setting_options.h"

namespace Kes::test {
namespace {

using tool::Finding;
using tool::Findings;
using tool::Link;
using tool::State;

std::string text_of(const Finding& finding) {
    return std::string(to_string(finding.state)) + " " + finding.check + ": " +
           finding.finding.str(tool::Names::shown) + " | " + finding.remedy.str(tool::Names::shown);
}

Lines texts_of(const Findings& findings) {
    Lines lines;
    for (const Finding& finding : findings)
        lines.push_back(text_of(finding));
    return lines;
}

tool::SurveyedKey offered_key(const std::string& type, const std::string& curve = "",
                              const std::string& id = "container") {
    tool::SurveyedKey key;
    key.id = id;
    key.is_offered = true;
    key.certificate = tool::CertificateFacts();
    key.certificate->key_type = type;
    key.certificate->curve = curve;
    return key;
}

const std::string limit =
    " | Let the client limit itself to TLS 1.2 by SSL_CTX_set_max_proto_version(), and to RSA "
    "with PKCS#1 by SSL_CTX_set1_client_sigalgs_list()";
const std::string capi_rsa = "ok TLS: the key container can serve TLS 1.2 only, with rsa_pkcs1_sha256, "
                             "rsa_pkcs1_sha384 and rsa_pkcs1_sha512 | ";

TEST(DoctorTlsTest, Tls13WithCryptoApiIsReported) {
    EXPECT_EQ(texts_of(tool::judge_tls(OsslScardCfg::capi, {offered_key("RSA")})), Lines{capi_rsa});
    EXPECT_EQ(
        texts_of(tool::judge_tls_defaults(OsslScardCfg::capi, {0, 0})),
        Lines{
            "warning TLS versions: OpenSSL's defaults allow TLS 1.3, which the keys of this back-end cannot "
            "serve" +
            limit});
    EXPECT_EQ(
        texts_of(tool::judge_tls_defaults(OsslScardCfg::capi_store, {TLS1_3_VERSION, 0})),
        Lines{
            "error TLS versions: openssl.cnf demands TLS 1.3, which the keys of this back-end cannot serve | "
            "Remove MinProtocol from openssl.cnf, or use the back-end pkcs11"});
    EXPECT_EQ(texts_of(tool::judge_tls_defaults(OsslScardCfg::capi, {0, TLS1_2_VERSION})), Lines{});
    EXPECT_EQ(texts_of(tool::judge_tls_defaults(OsslScardCfg::pkcs11, {0, 0})), Lines{});
}

TEST(DoctorTlsTest, CurveDecidesAboutTls13) {
    EXPECT_EQ(
        texts_of(tool::judge_tls(OsslScardCfg::pkcs11, {offered_key("EC", "secp384r1"),
                                                        offered_key("EC", "brainpoolP256r1", "other")})),
        (Lines{"ok TLS: the key container can serve TLS 1.2 with ecdsa_secp256r1_sha256 and "
               "ecdsa_secp521r1_sha512, TLS 1.2 and 1.3 with ecdsa_secp384r1_sha384 | ",
               "ok TLS: the key other can serve TLS 1.2 only, with ecdsa_secp256r1_sha256, "
               "ecdsa_secp384r1_sha384 and ecdsa_secp521r1_sha512, because TLS 1.3 has no signatures with "
               "brainpoolP256r1 | "}));
}

TEST(DoctorTlsTest, EcKeyWithCryptoApiBesideAGoodKeyIsAWarning) {
    EXPECT_EQ(
        texts_of(tool::judge_tls(OsslScardCfg::capi,
                                 {offered_key("EC", "prime256v1", "other"), offered_key("RSA")})),
        (Lines{"warning TLS: the key other can serve no TLS: this back-end cannot use keys of the type EC | "
               "Use an RSA key, or the back-end pkcs11",
               capi_rsa}));
}

TEST(DoctorTlsTest, EcKeyWithCryptoApiIsAnError) {
    EXPECT_EQ(
        texts_of(tool::judge_tls(OsslScardCfg::capi, {offered_key("EC", "prime256v1")})),
        Lines{"error TLS: the key container can serve no TLS: this back-end cannot use keys of the type EC | "
              "Use "
              "an RSA key, or the back-end pkcs11"});
}

TEST(DoctorTlsTest, KeysWithTheSameIdHaveOneLine) {
    EXPECT_EQ(texts_of(tool::judge_tls(OsslScardCfg::capi, {offered_key("RSA"), offered_key("RSA")})),
              Lines{capi_rsa});
    EXPECT_EQ(
        texts_of(tool::judge_tls(OsslScardCfg::capi, {offered_key("RSA"), offered_key("RSA", "", "other")}))
            .size(),
        2U);
}

/// The report without names about a key of CryptoAPI.
std::string report_without_names(const std::string& key_id) {
    const EnvVar back_end("ossl_scard_cfg_crypto_if", "capi");
    const tool::SettingOptions settings;
    const tool::PinOptions pin;
    tool::Context context({settings, pin, false, key_id});
    tool::SurveyedKey key = offered_key("RSA");
    key.id = "Eva Novak";
    key.name = "Eva Novak (signature)";
    key.verdict = {"offered", "offered"};
    key.certificate->subject = "CN=Eva Novak";
    tool::SurveyedKey unreadable;
    unreadable.id = unreadable.name = "Eva";
    unreadable.verdict = {"unreadable_container", "Eva Novak and Eva"};
    context.survey = tool::KeySurvey{true, {unreadable, key}, {}};
    const std::vector<tool::Check> checks{{"keys", Link::card, {}, tool::check_keys},
                                          {"key in effect", Link::client, {}, tool::check_key_id},
                                          {"TLS", Link::card, {}, tool::check_tls}};
    std::string report;
    for (const Finding& finding : tool::run_checks(checks, context, [](const Finding&) {}))
        report += finding.finding.str(tool::Names::left_out) + "\n";
    return report;
}

TEST(DoctorPersonalDataTest, ContainersOfCryptoApiAreLeftOut) {
    EXPECT_EQ(report_without_names("Eva Novak"),
              "'[name]' (id [name]): [name] and [name]\n"
              "'[name]' (id [name], RSA 0, [name], 0 days left): offered\n"
              "the key [name] is offered\n"
              "the key [name] can serve TLS 1.2 only, with rsa_pkcs1_sha256, rsa_pkcs1_sha384 and "
              "rsa_pkcs1_sha512\n");
    const std::string absent = report_without_names("Eva Nov");
    EXPECT_NE(absent.find("\nthe key [name] is not on the card\n"), std::string::npos) << absent;
}

Findings succeed(tool::Context&) { return {{State::ok, Link::client, "good", "fine", ""}}; }
Findings fail(tool::Context&) { throw std::runtime_error("first\nsecond"); }
Findings fail_strangely(tool::Context&) { throw 1; } // NOLINT(misc-throw-by-value-catch-by-reference)

TEST(DoctorCheckTest, CheckThatThrowsBecomesALineAndLaterChecksRun) {
    const std::vector<tool::Check> checks{{"bad", Link::engine, {}, fail},
                                          {"strange", Link::engine, {}, fail_strangely},
                                          {"depends", Link::card, {"bad"}, succeed},
                                          {"good", Link::client, {}, succeed},
                                          {"chain", Link::card, {"depends"}, succeed}};
    const tool::SettingOptions settings;
    const tool::PinOptions pin;
    tool::Context context({settings, pin, false, ""});
    Lines reported;
    const Findings all = tool::run_checks(
        checks, context, [&](const Finding& finding) { reported.push_back(text_of(finding)); });
    const std::string report = " | Report this line to the developers of marvo if you cannot explain it";
    EXPECT_EQ(reported,
              (Lines{"error bad: this check failed: first; second" + report,
                     "error strange: this check failed: unknown exception" + report,
                     "skipped depends: not checked because of the check 'bad' | ", "ok good: fine | ",
                     "skipped chain: not checked because of the check 'depends' | "}));
    EXPECT_EQ(texts_of(all), reported);
}

TEST(DoctorCheckTest, ErrorTextBecomesOneLine) {
    EXPECT_EQ(
        tool::one_line(
            "libp11_helper:190 f(): failed: rc=-1\n"
            "40BE8BD2947F0000:error:408000A0:PKCS#11 module:ERR_CKR_error:PIN incorrect:p11_slot.c:208:\n"
            "40BE8BD2947F0000:error:12800067:DSO support routines:dlfcn_load:could not load the shared "
            "library:dso.c:118:filename(C:\\a b.dll)\r\n"),
        "libp11_helper:190 f(): failed: rc=-1; PKCS#11 module: PIN incorrect; DSO support routines: could "
        "not load "
        "the shared library: filename(C:\\a b.dll)");
}

} // namespace
} // namespace Kes::test
