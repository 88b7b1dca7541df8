#include <regex>

#include "support/core_fixture.h"

namespace Kes::test {
namespace {

/// What the log shows of the settings, as they are after init() unless told otherwise.
struct Settings {
    std::string key_type = "SIGNATURE";
    std::string priv_key_name = "";
    std::string cert_name = "";
    std::string key_usages = "none";
    std::string state = "initialized";
    std::string pin_and_reload = "false";
};

std::string settings(const Settings& shown) {
    return R"(configuration settings:
  crypto_if=pkcs11
  capi_openssl_engine_dll=.\capi.dll
  capi_csp_name=Microsoft Base Smart Card Crypto Provider
  capi_key_type=)" +
           shown.key_type + R"(
  pkcs11_openssl_engine_dll=./engine.so
  pkcs11_module_dll=module.so
  capi_store_openssl_engine_dll=.\capi.dll
  capi_store_cert_store_name=MY
  priv_key_name=)" +
           shown.priv_key_name + R"(
  cert_name=)" +
           shown.cert_name + R"(
  kuse_filter_type=all
  kuse_filter=)" +
           shown.key_usages + R"(
  xkuse_filter_type=all
  xkuse_nid_filter=
  logfile=LOGFILE
  logfile_severity=trace|debug|info|warn|error|fatal
  logfile_append=APPEND
additional settings:
  cfg_state=)" +
           shown.state + R"(
  is_pin_required=)" +
           shown.pin_and_reload + R"(
  pin specified=)" +
           shown.pin_and_reload + R"(
  need_ossl_reload=)" +
           shown.pin_and_reload + "\n";
}

const std::string start = R"(<info> using OpenSSL smart card interface version 4
<info> ossl_scard 4.3.0
Compiled at BUILD
HOLDER
<info> OpenSSL smart card manager started.
<info> called: Kes::OsslScardIfImp::version_check()
<info> interface version check successful: specified=4, expected=4
<info> called: Kes::OsslScardIfImp::get_config_default()
<info> called: Kes::OsslScardIfImp::init()
<info> ctx: manufacturer=Module maker, description=Module
<info> libp11 initialized
<info> OpenSSL smart card manager settings:
)" + settings({}) + R"(<info> init done.
)";

const std::string reading = R"(<info> called: Kes::OsslScardIfImp::read_scard()
<info> slot: manufacturer=Slot maker, description=Slot 1
<info> token:
<info>   label:         Token 1
<info>   manufacturer:  Maker
<info>   model:         Model 7
<info>   serialnr:      0042
<info>   loginRequired: 1
<info>   secureLogin:   0
<info> libp11 read smart card
<info> called: Kes::OsslScardIfImp::is_pin_required()
<info> called: Kes::OsslScardIfImp::set_pin()
<info> setting pin
<info> called: Kes::OsslScardIfImp::discover_keys()
<trace> created PkoIdScanner object
<trace> created Pkcs11Libp11PkoIdScanner object
<info> started scanning of PKCS#11 objects
<info> pin required - need login
)";

const std::string discovery = R"(<info> logged-in successfully
<info> handling Token 1: Auth key [type=certificate, key_type=0, name=pkcs11:token=Token 1;id=%01%ab;type=cert, cluster_name=%01%ab]
<info> handling Token 1: Auth key [type=private_key, key_type=0, name=pkcs11:token=Token 1;id=%01%ab;type=private, cluster_name=%01%ab]
<info>   corresponding cert:
Token 1: Auth key [type=certificate, key_type=0, name=pkcs11:token=Token 1;id=%01%ab;type=cert, cluster_name=%01%ab]
<info> key usage:
  _kuse_mask="key_encipherment|digital_signature" (0xa0)
  _xkuse_mask="ssl_client|smime" (0x6)
  _xkuse_nid_list="1.3.6.1.5.5.7.3.2,1.3.6.1.5.5.7.3.4"
<info> key usage check returned: 1
<info> extended key usage check returned: 1
<info> handling Token 1: Auth key [type=public_key, key_type=0, name=pkcs11:token=Token 1;id=%01%ab;type=public, cluster_name=%01%ab]
<info> finished scanning of PKCS#11 objects
<info> Token 1: Auth key [type=certificate, key_type=0, name=pkcs11:token=Token 1;id=%01%ab;type=cert, cluster_name=%01%ab]
Token 1: Auth key [type=private_key, key_type=0, name=pkcs11:token=Token 1;id=%01%ab;type=private, cluster_name=%01%ab]
Token 1: Auth key [type=public_key, key_type=0, name=pkcs11:token=Token 1;id=%01%ab;type=public, cluster_name=%01%ab]
)";

const std::string loading = R"(<info> called: Kes::OsslScardIfImp::get_key_name()
<info> called: Kes::OsslScardIfImp::set_key(key_num)
<info> setting key type: 0
<info> setting private key name: pkcs11:token=Token 1;id=%01%ab;type=private
<info> setting certificate name: pkcs11:token=Token 1;id=%01%ab;type=cert
<info> called: Kes::OsslScardIfImp::set_key(key_type, key_id)
<info> setting key type: 0
<info> setting private key name: pkcs11:token=Token 1;id=%01%ab;type=private
<info> setting certificate name: pkcs11:token=Token 1;id=%01%ab;type=cert
<info> called: Kes::OsslScardIfImp::notify_config_done()
<debug> env: key_usage_filter=digital_signature
<info> OpenSSL smart card manager settings:
)" +
                            settings({.key_type = "unknown [val=0]",
                                      .priv_key_name = "pkcs11:token=Token 1;id=%01%ab;type=private",
                                      .cert_name = "pkcs11:token=Token 1;id=%01%ab;type=cert",
                                      .key_usages = "digital_signature",
                                      .state = "configured",
                                      .pin_and_reload = "true"}) +
                            R"(<info> configuration done.
<info> called: Kes::OsslScardIfImp::ossl_load()
<info> loaded engine: id=pkcs11
<info> read private key: pkcs11:token=Token 1;id=%01%ab;type=private
<info> read certificate: pkcs11:token=Token 1;id=%01%ab;type=cert
<info> certificate info:
<info>   subject: C=AT, O=Test Makers, CN=Test Client
<info>   issuer:  C=AT, O=Test Makers, CN=Test CA
<info> called: Kes::OsslScardIfImp::ossl_get_private_key()
<info> called: Kes::OsslScardIfImp::ossl_get_certificate()
<info> called: Kes::OsslScardIfImp::get_config_used()
<info> called: Kes::OsslScardIfImp::get_version()
<info> called: Kes::OsslScardIfImp::ossl_unload()
<info> freed certificate
<info> freed key
<info> called: Kes::OsslScardIfImp::destroy()
<info> unloading engine: id=pkcs11
)";

const std::string end = R"(<info> libp11 destroyed
<info> OpenSSL smart card manager stopped.
<trace> destroyed Pkcs11Libp11PkoIdScanner object
<trace> destroyed PkoIdScanner object
<trace> destroyed PkoIdList object
)";

class OsslScardIfLogTest : public ScardTest {
protected:
    /// From the first call to the PIN; what follows depends on the PIN.
    void begin(const char* pin, bool append = false) {
        ASSERT_EQ(scard().version_check(4), 0);
        OsslScardCfg& cfg = make_config();
        cfg.set_logfile(dir.file("log").c_str());
        cfg.set_logfile_severity(63);
        if (append) cfg.enable_logfile_append();
        ASSERT_EQ(scard().init(&cfg), 0);
        ASSERT_EQ(scard().read_scard(), 0);
        ASSERT_TRUE(scard().is_pin_required());
        ASSERT_EQ(scard().set_pin(pin), 0);
    }

    void run_to_the_end() {
        std::size_t count = 0;
        evp_pkey_st* key = nullptr;
        x509_st* cert = nullptr;
        ASSERT_EQ(scard().discover_keys(&count), 0);
        ASSERT_NE(scard().get_key_name(0), nullptr);
        ASSERT_EQ(scard().set_key(std::size_t{0}), 0);
        ASSERT_EQ(scard().set_key(0U, "%01%ab"), 0);
        const EnvVar variable("ossl_scard_cfg_key_usage_filter", "0x80");
        ASSERT_EQ(scard().notify_config_done(), 0);
        ASSERT_EQ(scard().ossl_load(), 0);
        ASSERT_EQ(scard().ossl_get_private_key(&key), 0);
        ASSERT_EQ(scard().ossl_get_certificate(&cert), 0);
        ASSERT_NE(scard().get_config_used(), nullptr);
        ASSERT_STREQ(scard().get_version(), "4.3.0");
        ASSERT_EQ(scard().ossl_unload(), 0);
        scard().destroy();
    }

    /// The log without what differs from run to run, from build to build and from folder to folder.
    Lines log() const {
        const std::regex restart("at ....-..-.. ..:..:..\\.... --");
        Lines lines = split_lines(read_text(dir.file("log")));
        for (std::string& line : lines) {
            line = without_header(line);
            line = std::regex_replace(without_thread(line), restart, "at TIME --");
            if (line.starts_with("Compiled at ")) line = "Compiled at BUILD";
            if (line.starts_with("Copyright ")) line = "HOLDER";
        }
        return lines;
    }

    Lines expected(std::string lines, const char* append = "false") const {
        const auto replace = [&](const std::string& from, const std::string& to) {
            for (std::size_t at = 0; (at = lines.find(from, at)) != std::string::npos; at += to.size())
                lines.replace(at, from.size(), to);
        };
        replace("LOGFILE", dir.file("log"));
        replace("APPEND", append);
        return split_lines(lines);
    }

    /// As one text, of which GoogleTest shows the differing lines alone.
    static std::string text(const Lines& lines) {
        std::string whole;
        for (const std::string& line : lines)
            whole += line + '\n';
        return whole;
    }

    TempDir dir;
};

TEST_F(OsslScardIfLogTest, ATypicalRunInFull) {
    begin("1234");
    run_to_the_end();
    EXPECT_EQ(text(log()), text(expected(start + reading + discovery + loading + end)));
}

TEST_F(OsslScardIfLogTest, AppendingAddsASecondRunBelowARestartLine) {
    begin("1234");
    run_to_the_end();
    libp11().is_logged_in = false;
    begin("1234", true);
    run_to_the_end();
    Lines lines = expected(start + reading + discovery + loading + end);
    const Lines second = expected("[[[ ------ restart logger at TIME ------]]]\n" + start + reading +
                                      discovery + loading + end,
                                  "true");
    lines.insert(lines.end(), second.begin(), second.end());
    EXPECT_EQ(text(log()), text(lines));
}

TEST_F(OsslScardIfLogTest, AFailingLoginInFull) {
    begin("0000");
    std::size_t count = 0;
    ASSERT_EQ(scard().discover_keys(&count), 1);
    ASSERT_NE(last_error(), "");
    scard().destroy();
    const std::string failure =
        "<error> libp11_helper:190 Kes::Libp11Init::authenticate(): PKCS11_login() failed: rc=-1\n"
        "THREAD:error:400000A0:lib(128):scripted:reason(160):double.c:1:PIN incorrect\n"
        "<info> called: Kes::OsslScardIfImp::get_last_error_msg()\n"
        "<info> called: Kes::OsslScardIfImp::destroy()\n";
    EXPECT_EQ(text(log()), text(expected(start + reading + failure + end)));
}

TEST_F(OsslScardIfLogTest, FailuresOfTheEnginesEndAreWarnedOf) {
    begin("1234");
    script().fail_function("ENGINE_remove", {.rc = 0});
    script().fail_function("ENGINE_finish", {.rc = 0});
    run_to_the_end();
    EXPECT_EQ(text(log()), text(expected(start + reading + discovery + loading +
                                         "<warn> ENGINE_remove() returned error\n"
                                         "<warn> ENGINE_finish() returned error\n" +
                                         end)));
}

TEST_F(OsslScardIfLogTest, AnExceptionOfAnUnknownKindIsLoggedAsUnhandled) {
    begin("1234");
    script().fail_function("PKCS11_enumerate_certs", {.throws_int = true});
    std::size_t count = 0;
    ASSERT_EQ(scard().discover_keys(&count), 255);
    EXPECT_EQ(log().back(), "<error> unhandled exception");
}

TEST_F(OsslScardIfLogTest, ARefusedVersionLogsTheFailureAndTheSuccessLineAsWell) {
    begin("1234");
    ASSERT_EQ(scard().version_check(3), 1);
    const Lines lines = log();
    EXPECT_EQ(Lines(lines.end() - 3, lines.end()),
              (Lines{"<info> called: Kes::OsslScardIfImp::version_check()",
                     "<error> interface version incompatibility detected: specified=3, expected=4",
                     "<info> interface version check successful: specified=3, expected=4"}));
}

TEST_F(OsslScardIfLogTest, AnEmptyListIsAnEmptyLine) {
    token().certs.clear();
    token().private_keys.clear();
    token().public_keys.clear();
    begin("1234");
    std::size_t count = 0;
    ASSERT_EQ(scard().discover_keys(&count), 0);
    const Lines lines = log();
    EXPECT_EQ(Lines(lines.end() - 2, lines.end()),
              (Lines{"<info> finished scanning of PKCS#11 objects", "<info> "}));
}

TEST_F(OsslScardIfLogTest, ADumpIsCutToItsBuffer) {
    begin("1234");
    scard().get_config_used()->set_cert_name(std::string(10000, 'c').c_str());
    ASSERT_EQ(scard().notify_config_done(), 0);
    const Lines lines = log();
    const auto additional = std::find_if(lines.rbegin(), lines.rend(), [](const std::string& line) {
        return line.ends_with("additional settings:");
    });
    ASSERT_NE(additional, lines.rend());
    const auto cut = std::find_if(additional, lines.rend(),
                                  [](const std::string& line) { return line == "configuration settings:"; });
    ASSERT_NE(cut, lines.rend());
    std::size_t length = 0;
    for (auto line = additional; line != std::next(cut); ++line)
        length += line->size() + 1;
    EXPECT_EQ(length, 4095 + std::string("additional settings:\n").size());
}

} // namespace
} // namespace Kes::test
