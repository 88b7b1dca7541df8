#include "support/core_fixture.h"
#include "support/expected_log.h"

namespace Kes::test {
namespace {

constexpr const char* pin_requirement = R"(<info> called: Kes::OsslScardIfImp::is_pin_required()
<info> called: Kes::OsslScardIfImp::set_pin()
<info> setting pin
<info> called: Kes::OsslScardIfImp::discover_keys()
<trace> created PkoIdScanner object
<trace> created Pkcs11Libp11PkoIdScanner object
<info> started scanning of PKCS#11 objects
<info> pin required - need login
)";

/// The settings after init().
const ShownSettings initialized{
    .pkcs11_engine = "./engine.so", .pkcs11_module = "module.so", .append = "APPEND"};

const ShownSettings configured{.capi_key_type = "unknown [val=0]",
                               .pkcs11_engine = "./engine.so",
                               .pkcs11_module = "module.so",
                               .priv_key_name = private_uri,
                               .cert_name = cert_uri,
                               .key_usages = "digital_signature",
                               .append = "APPEND",
                               .state = "configured",
                               .pin = "true",
                               .reload = "true"};

const std::string start = manager_started + version_checked +
                          R"(<info> called: Kes::OsslScardIfImp::get_config_default()
<info> called: Kes::OsslScardIfImp::init()
<info> ctx: manufacturer=Module maker, description=Module
<info> libp11 initialized
)" + logged_settings(initialized) +
                          "<info> init done.\n";

const std::string reading =
    logged_reading({"manufacturer=Slot maker, description=Slot 1", "Token 1", "Maker", "Model 7", "0042"}) +
    pin_requirement;

const std::string discovery = logged_scan("Token 1", "Auth key", "%01%ab",
                                          {"key_encipherment|digital_signature", "0xa0", "ssl_client|smime",
                                           "0x6", "1.3.6.1.5.5.7.3.2,1.3.6.1.5.5.7.3.4"});

const std::string selection = logged_selection("0", private_uri, cert_uri);

const std::string loading = R"(<info> called: Kes::OsslScardIfImp::get_key_name()
<info> called: Kes::OsslScardIfImp::set_key(key_num)
)" + selection + "<info> called: Kes::OsslScardIfImp::set_key(key_type, key_id)\n" +
                            selection + R"(<info> called: Kes::OsslScardIfImp::notify_config_done()
<debug> env: key_usage_filter=digital_signature
)" + logged_settings(configured) +
                            R"(<info> configuration done.
<info> called: Kes::OsslScardIfImp::ossl_load()
<info> loaded engine: id=pkcs11
<info> read private key: pkcs11:token=Token 1;id=%01%ab;type=private
<info> read certificate: pkcs11:token=Token 1;id=%01%ab;type=cert
)" + logged_certificate("C=AT, O=Test Makers, CN=Test Client", "C=AT, O=Test Makers, CN=Test CA") +
                            R"(<info> called: Kes::OsslScardIfImp::ossl_get_private_key()
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

class OsslScardIfImpLogTest : public ScardTest {
protected:
    /// Runs the calls from version_check() to set_pin().
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

    void finish_run() {
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

    /// The log without the parts that differ between runs or builds.
    Lines log() const {
        Lines lines = log_lines(dir.file("log"));
        for (std::string& line : lines)
            line = without_build(without_thread(line));
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

    TempDir dir;
};

TEST_F(OsslScardIfImpLogTest, TypicalRunIsLoggedInFull) {
    begin("1234");
    finish_run();
    EXPECT_EQ(as_text(log()), as_text(expected(start + reading + discovery + loading + end)));
}

TEST_F(OsslScardIfImpLogTest, AppendedRunFollowsARestartLine) {
    begin("1234");
    finish_run();
    libp11().is_logged_in = false;
    begin("1234", true);
    finish_run();
    Lines lines = expected(start + reading + discovery + loading + end);
    const Lines second = expected("[[[ ------ restart logger at TIME ------]]]\n" + start + reading +
                                      discovery + loading + end,
                                  "true");
    lines.insert(lines.end(), second.begin(), second.end());
    EXPECT_EQ(as_text(log()), as_text(lines));
}

TEST_F(OsslScardIfImpLogTest, FailedLoginIsLoggedInFull) {
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
    EXPECT_EQ(as_text(log()), as_text(expected(start + reading + failure + end)));
}

TEST_F(OsslScardIfImpLogTest, FailuresDuringEngineUnloadAreLoggedAsWarnings) {
    begin("1234");
    script().fail_function("ENGINE_remove", {.rc = 0});
    script().fail_function("ENGINE_finish", {.rc = 0});
    finish_run();
    EXPECT_EQ(as_text(log()), as_text(expected(start + reading + discovery + loading +
                                               "<warn> ENGINE_remove() returned error\n"
                                               "<warn> ENGINE_finish() returned error\n" +
                                               end)));
}

TEST_F(OsslScardIfImpLogTest, UnknownExceptionIsLoggedAsUnhandled) {
    begin("1234");
    script().fail_function("PKCS11_enumerate_certs", {.throws_int = true});
    std::size_t count = 0;
    ASSERT_EQ(scard().discover_keys(&count), 255);
    EXPECT_EQ(log().back(), "<error> unhandled exception");
}

TEST_F(OsslScardIfImpLogTest, RejectedVersionLogsTheFailureAndTheSuccessLine) {
    begin("1234");
    ASSERT_EQ(scard().version_check(3), 1);
    const Lines lines = log();
    EXPECT_EQ(Lines(lines.end() - 3, lines.end()),
              (Lines{"<info> called: Kes::OsslScardIfImp::version_check()",
                     "<error> interface version incompatibility detected: specified=3, expected=4",
                     "<info> interface version check successful: specified=3, expected=4"}));
}

TEST_F(OsslScardIfImpLogTest, EmptyListIsLoggedAsAnEmptyLine) {
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

TEST_F(OsslScardIfImpLogTest, DumpIsTruncatedToItsBuffer) {
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
