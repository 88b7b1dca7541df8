// The whole log of whole runs, line by line.
#include <gtest/gtest.h>
#include <regex>

#include "token_client.h"

namespace Kes::test {
namespace {

/// A log line without what differs from run to run: time, thread, build, and what SoftHSM made up for the
/// token.
std::string masked_line(const std::string& line) {
    static const std::pair<std::regex, const char*> masks[] = {
        {std::regex("^Compiled at .*"), "Compiled at BUILD"},
        {std::regex("SoftHSM slot ID 0x[0-9a-f]+"), "SoftHSM slot ID SLOT"},
        {std::regex("(serialnr:      )[0-9a-f]{16}$"), "$1SERIAL"},
        {std::regex("restart logger at \\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} "),
         "restart logger at TIME "},
        {std::regex("^[0-9A-F]+:error:[0-9A-F]+:([^:]*):[^:]*:([^:]*):[^:]*:[^:]*:$"), "error:$1:$2:"},
    };
    std::string text = without_header(line);
    for (const auto& [mask, replacement] : masks)
        text = std::regex_replace(text, mask, replacement);
    return text;
}

/// The log as one text, with the names of this run's files replaced.
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

const std::string start = R"(<info> using OpenSSL smart card interface version 4
<info> ossl_scard 4.3.0
Compiled at BUILD
Copyright (c) 2026 the maintainers of libmarvo
<info> OpenSSL smart card manager started.
<info> called: Kes::OsslScardIfImp::get_config_default()
)";

const std::string init_before_settings = R"(<info> called: Kes::OsslScardIfImp::init()
<info> ctx: manufacturer=SoftHSM, description=Implementation of PKCS11
<info> libp11 initialized
)";

/// The dump after init() with the log settings given.
std::string settings_after_init(const std::string& severity, const std::string& append) {
    return R"(<info> OpenSSL smart card manager settings:
configuration settings:
  crypto_if=pkcs11
  capi_openssl_engine_dll=.\capi.dll
  capi_csp_name=Microsoft Base Smart Card Crypto Provider
  capi_key_type=SIGNATURE
  pkcs11_openssl_engine_dll=ENGINE
  pkcs11_module_dll=MODULE
  capi_store_openssl_engine_dll=.\capi.dll
  capi_store_cert_store_name=MY
  priv_key_name=
  cert_name=
  kuse_filter_type=all
  kuse_filter=none
  xkuse_filter_type=all
  xkuse_nid_filter=
  logfile=LOGFILE
  logfile_severity=)" +
           severity + "\n  logfile_append=" + append + R"(
additional settings:
  cfg_state=initialized
  is_pin_required=false
  pin specified=false
  need_ossl_reload=false
<info> init done.
)";
}

const std::string read_scard = R"(<info> called: Kes::OsslScardIfImp::read_scard()
<info> slot: manufacturer=SoftHSM project, description=SoftHSM slot ID SLOT
<info> token:
<info>   label:         Test Token
<info>   manufacturer:  SoftHSM project
<info>   model:         SoftHSM v2
<info>   serialnr:      SERIAL
<info>   loginRequired: 1
<info>   secureLogin:   0
<info> libp11 read smart card
)";

const std::string discover_before_login = R"(<info> called: Kes::OsslScardIfImp::is_pin_required()
<info> called: Kes::OsslScardIfImp::set_pin()
<info> setting pin
<info> called: Kes::OsslScardIfImp::discover_keys()
<trace> created PkoIdScanner object
<trace> created Pkcs11Libp11PkoIdScanner object
<info> started scanning of PKCS#11 objects
<info> pin required - need login
)";

const std::string scan = R"(<info> logged-in successfully
<info> handling Test Token: login [type=certificate, key_type=0, name=pkcs11:token=Test Token;id=%01;type=cert, cluster_name=%01]
<info> handling Test Token: login [type=private_key, key_type=0, name=pkcs11:token=Test Token;id=%01;type=private, cluster_name=%01]
<info>   corresponding cert:
Test Token: login [type=certificate, key_type=0, name=pkcs11:token=Test Token;id=%01;type=cert, cluster_name=%01]
<info> key usage:
  _kuse_mask="digital_signature" (0x80)
  _xkuse_mask="ssl_client" (0x2)
  _xkuse_nid_list="1.3.6.1.5.5.7.3.2"
<info> key usage check returned: 1
<info> extended key usage check returned: 1
<info> handling Test Token: login [type=public_key, key_type=0, name=pkcs11:token=Test Token;id=%01;type=public, cluster_name=%01]
<info> finished scanning of PKCS#11 objects
<info> Test Token: login [type=certificate, key_type=0, name=pkcs11:token=Test Token;id=%01;type=cert, cluster_name=%01]
Test Token: login [type=private_key, key_type=0, name=pkcs11:token=Test Token;id=%01;type=private, cluster_name=%01]
Test Token: login [type=public_key, key_type=0, name=pkcs11:token=Test Token;id=%01;type=public, cluster_name=%01]
)";

const std::string choose = R"(<info> called: Kes::OsslScardIfImp::get_key_name()
<info> called: Kes::OsslScardIfImp::set_key(key_num)
<info> setting key type: 0
<info> setting private key name: pkcs11:token=Test Token;id=%01;type=private
<info> setting certificate name: pkcs11:token=Test Token;id=%01;type=cert
<info> called: Kes::OsslScardIfImp::notify_config_done()
<info> OpenSSL smart card manager settings:
configuration settings:
  crypto_if=pkcs11
  capi_openssl_engine_dll=.\capi.dll
  capi_csp_name=Microsoft Base Smart Card Crypto Provider
  capi_key_type=unknown [val=0]
  pkcs11_openssl_engine_dll=ENGINE
  pkcs11_module_dll=MODULE
  capi_store_openssl_engine_dll=.\capi.dll
  capi_store_cert_store_name=MY
  priv_key_name=pkcs11:token=Test Token;id=%01;type=private
  cert_name=pkcs11:token=Test Token;id=%01;type=cert
  kuse_filter_type=all
  kuse_filter=none
  xkuse_filter_type=all
  xkuse_nid_filter=
  logfile=LOGFILE
  logfile_severity=trace|debug|info|warn|error|fatal
  logfile_append=false
additional settings:
  cfg_state=configured
  is_pin_required=true
  pin specified=true
  need_ossl_reload=true
<info> configuration done.
)";

const std::string load_and_unload = R"(<info> called: Kes::OsslScardIfImp::ossl_load()
<info> loaded engine: id=pkcs11
<info> read private key: pkcs11:token=Test Token;id=%01;type=private
<info> read certificate: pkcs11:token=Test Token;id=%01;type=cert
<info> certificate info:
<info>   subject: O=Test, CN=Login Key
<info>   issuer:  O=Throw-away, CN=Soft token CA
<info> called: Kes::OsslScardIfImp::ossl_get_private_key()
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

TEST(LogTest, ATypicalRunIsWrittenLineByLine) {
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
              start +
                  "<info> called: Kes::OsslScardIfImp::version_check()\n"
                  "<info> interface version check successful: specified=4, expected=4\n" +
                  init_before_settings + settings_after_init("trace|debug|info|warn|error|fatal", "false") +
                  read_scard + discover_before_login + scan + choose + load_and_unload + called_destroy +
                  "<info> unloading engine: id=pkcs11\n" + stop + last_traces);
}

TEST(LogTest, ARunWithAFailingLoginTellsTheReason) {
    const SoftToken token("one");
    Client client;
    ASSERT_FALSE(client.discover("654321"));
    EXPECT_EQ(client.masked_error().substr(0, 14), "libp11_helper:");
    client.end();
    EXPECT_EQ(masked_log(client.log_text(), client.logfile),
              start + init_before_settings +
                  settings_after_init("trace|debug|info|warn|error|fatal", "false") + read_scard +
                  discover_before_login +
                  "<error> libp11_helper:190 Kes::Libp11Init::authenticate(): PKCS11_login() failed: rc=-1\n"
                  "error:PKCS#11 module:PIN incorrect:\n"
                  "<info> called: Kes::OsslScardIfImp::get_last_error_msg()\n" +
                  called_destroy + stop + last_traces);
}

/// A run up to read_scard(), in the process that calls it.
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
    return start + init_before_settings + settings_after_init("info|warn|error|fatal", append) + read_scard +
           called_destroy + stop;
}

TEST(LogTest, AnAppendingRunOfAnotherProcessStartsWithABanner) {
    const SoftToken token("one");
    const std::string logfile = token.file("log");
    ASSERT_EQ(status_of_child([&] { return short_run(logfile, false); }), 0);
    ASSERT_EQ(status_of_child([&] { return short_run(logfile, true); }), 0);
    EXPECT_EQ(masked_log(read_file(logfile), logfile),
              short_log("false") + "[[[ ------ restart logger at TIME ------]]]\n" + short_log("true"));
}

TEST(LogTest, AnAppendingRunOfTheSameProcessStartsWithABanner) {
    const SoftToken token("one");
    const std::string logfile = token.file("log");
    ASSERT_EQ(short_run(logfile, false), 0);
    ASSERT_EQ(short_run(logfile, true), 0);
    EXPECT_EQ(masked_log(read_file(logfile), logfile),
              short_log("false") + "[[[ ------ restart logger at TIME ------]]]\n" + short_log("true"));
}

TEST(LogTest, ARunThatDoesNotAppendEmptiesTheFile) {
    const SoftToken token("one");
    const std::string logfile = token.file("log");
    ASSERT_EQ(short_run(logfile, true), 0);
    ASSERT_EQ(short_run(logfile, false), 0);
    EXPECT_EQ(masked_log(read_file(logfile), logfile), short_log("false"));
}

} // namespace
} // namespace Kes::test
