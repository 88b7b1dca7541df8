// The complete logs of complete runs.
#include <gtest/gtest.h>
#include <regex>

#include "support/expected_log.h"
#include "token_client.h"

namespace Kes::test {
namespace {

/// Masks what differs from run to run: time, thread, build, and the slot id and serial number that SoftHSM
/// generated.
std::string masked_line(const std::string& line) {
    static const std::regex slot("SoftHSM slot ID 0x[0-9a-f]+");
    static const std::regex serial("(serialnr:      )[0-9a-f]{16}$");
    const std::string text = masked_errors(without_build(without_header(line)));
    return std::regex_replace(std::regex_replace(text, slot, "SoftHSM slot ID SLOT"), serial, "$1SERIAL");
}

/// The masked log as one text, with this run's file names replaced.
std::string masked_log(const std::string& log, const std::string& logfile) {
    std::string text;
    for (const std::string& line : split_lines(log))
        text += masked_line(line) + "\n";
    const std::pair<std::string, std::string> names[] = {
        {logfile, "LOGFILE"}, {softhsm_module(), "MODULE"}, {pkcs11_engine(), "ENGINE"}};
    for (const auto& [name, word] : names)
        for (auto at = text.find(name); at != std::string::npos; at = text.find(name, at))
            text.replace(at, name.size(), word);
    return text;
}

const std::string start = manager_started + "<info> called: Kes::OsslScardIfImp::get_config_default()\n";

const std::string init_before_settings = R"(<info> called: Kes::OsslScardIfImp::init()
<info> ctx: manufacturer=SoftHSM, description=Implementation of PKCS11
<info> libp11 initialized
)";

std::string settings_after_init(const ShownSettings& shown) {
    return logged_settings(shown) + "<info> init done.\n";
}

const ShownSettings initialized{.pkcs11_engine = "ENGINE", .pkcs11_module = "MODULE"};

const std::string read_scard =
    logged_reading({"manufacturer=SoftHSM project, description=SoftHSM slot ID SLOT", "Test Token",
                    "SoftHSM project", "SoftHSM v2", "SERIAL"});

const std::string discover_before_login = logged_scan_start(true);

const std::string scan = logged_scan("Test Token", "login", "%01",
                                     {"digital_signature", "0x80", "ssl_client", "0x2", "1.3.6.1.5.5.7.3.2"});

constexpr const char* private_uri = "pkcs11:token=Test Token;id=%01;type=private";
constexpr const char* cert_uri = "pkcs11:token=Test Token;id=%01;type=cert";

const ShownSettings configured{.capi_key_type = "unknown [val=0]",
                               .pkcs11_engine = "ENGINE",
                               .pkcs11_module = "MODULE",
                               .priv_key_name = private_uri,
                               .cert_name = cert_uri,
                               .state = "configured",
                               .pin = "true",
                               .reload = "true"};

const std::string choose = R"(<info> called: Kes::OsslScardIfImp::get_key_name()
<info> called: Kes::OsslScardIfImp::set_key(key_num)
)" + logged_selection("0", private_uri, cert_uri) +
                           "<info> called: Kes::OsslScardIfImp::notify_config_done()\n" +
                           logged_settings(configured) + "<info> configuration done.\n";

const std::string load_and_unload = R"(<info> called: Kes::OsslScardIfImp::ossl_load()
<info> loaded engine: id=pkcs11
<info> read private key: pkcs11:token=Test Token;id=%01;type=private
<info> read certificate: pkcs11:token=Test Token;id=%01;type=cert
)" + logged_certificate("O=Test, CN=Login Key", "O=Throw-away, CN=Soft token CA") +
                                    R"(<info> called: Kes::OsslScardIfImp::ossl_get_private_key()
<info> called: Kes::OsslScardIfImp::ossl_get_certificate()
<info> called: Kes::OsslScardIfImp::ossl_unload()
<info> freed certificate
<info> freed key
)";

const std::string called_destroy = "<info> called: Kes::OsslScardIfImp::destroy()\n";

const std::string stop = R"(<info> libp11 destroyed
<info> OpenSSL smart card manager stopped.
)";

const std::string last_traces = R"(<trace> destroyed Pkcs11Libp11PkoIdScanner object
<trace> destroyed PkoIdScanner object
<trace> destroyed PkoIdList object
)";

TEST(LogTest, TypicalRunWritesExactlyTheExpectedLines) {
    const SoftToken token("one");
    Client client;
    ASSERT_EQ(client->version_check(4), 0);
    ASSERT_TRUE(client.discover());
    client->get_key_name(0);
    client->set_key(std::size_t{0});
    client->notify_config_done();
    ASSERT_EQ(client->ossl_load(), 0);
    client.key();
    client.certificate();
    client->ossl_unload();
    client.end();
    EXPECT_EQ(masked_log(client.log_text(), client.logfile),
              start + version_checked + init_before_settings + settings_after_init(initialized) + read_scard +
                  discover_before_login + scan + choose + load_and_unload + called_destroy +
                  "<info> unloading engine: id=pkcs11\n" + stop + last_traces);
}

TEST(LogTest, FailedLoginIsLoggedWithItsReason) {
    const SoftToken token("one");
    Client client;
    ASSERT_FALSE(client.discover("654321"));
    EXPECT_EQ(client.masked_error().substr(0, 14), "libp11_helper:");
    client.end();
    EXPECT_EQ(masked_log(client.log_text(), client.logfile),
              start + init_before_settings + settings_after_init(initialized) + read_scard +
                  discover_before_login +
                  "<error> libp11_helper:190 Kes::Libp11Init::authenticate(): PKCS11_login() failed: rc=-1\n"
                  "error:PKCS#11 module:PIN incorrect:\n"
                  "<info> called: Kes::OsslScardIfImp::get_last_error_msg()\n" +
                  called_destroy + stop + last_traces);
}

/// Calls init() and read_scard().
int short_run(const std::string& logfile, bool append) {
    Client client;
    client.cfg->set_logfile(logfile.c_str());
    client.cfg->set_logfile_severity(60);
    if (append) client.cfg->enable_logfile_append();
    const bool is_read = client.read();
    client.end();
    return is_read ? 0 : 1;
}

std::string short_log(const std::string& append) {
    ShownSettings shown = initialized;
    shown.severity = "info|warn|error|fatal";
    shown.append = append;
    return start + init_before_settings + settings_after_init(shown) + read_scard + called_destroy + stop;
}

TEST(LogTest, AppendingRunInAnotherProcessStartsWithBanner) {
    const SoftToken token("one");
    const std::string logfile = token.file("log");
    ASSERT_EQ(status_of_child([&] { return short_run(logfile, false); }), 0);
    ASSERT_EQ(status_of_child([&] { return short_run(logfile, true); }), 0);
    EXPECT_EQ(masked_log(read_file(logfile), logfile),
              short_log("false") + "[[[ ------ restart logger at TIME ------]]]\n" + short_log("true"));
}

TEST(LogTest, AppendingRunInTheSameProcessStartsWithBanner) {
    const SoftToken token("one");
    const std::string logfile = token.file("log");
    ASSERT_EQ(short_run(logfile, false), 0);
    ASSERT_EQ(short_run(logfile, true), 0);
    EXPECT_EQ(masked_log(read_file(logfile), logfile),
              short_log("false") + "[[[ ------ restart logger at TIME ------]]]\n" + short_log("true"));
}

TEST(LogTest, RunWithoutAppendingTruncatesTheFile) {
    const SoftToken token("one");
    const std::string logfile = token.file("log");
    ASSERT_EQ(short_run(logfile, true), 0);
    ASSERT_EQ(short_run(logfile, false), 0);
    EXPECT_EQ(masked_log(read_file(logfile), logfile), short_log("false"));
}

} // namespace
} // namespace Kes::test
