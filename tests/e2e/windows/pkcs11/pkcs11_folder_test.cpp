// All files in one folder that is the program's and the current one, and every setting at its default.
#include <regex>

#include "pkcs11_client_fixture.h"
#include "support/child.h"

namespace Kes::test {
namespace {

const std::filesystem::path programs = MARVO_PROGRAMS_DIR;
const std::filesystem::path doubles = MARVO_DOUBLES_DIR;

constexpr int all_operations = 13;

/// A folder with a client and the DLLs that it needs, and nothing else.
class RoadFolderTest : public RoadTest {
protected:
    RoadFolderTest() {
        for (const char* name : {"windows_pkcs11_client.exe", "libmarvo-4.dll", "libcrypto-3-x64.dll"})
            std::filesystem::copy_file(programs / name, dir.file(name));
        for (const char* name : {"libp11.dll", "itp11.dll", "pkcs11.dll"})
            std::filesystem::copy_file(doubles / name, dir.file(name));
        std::filesystem::current_path(programs); // where none of the test doubles is
    }

    long long run_client(int operations) const {
        return run_program(dir.file("windows_pkcs11_client.exe"), std::to_string(operations), dir.path());
    }

    std::string log_file() const { return dir.file("ossl_scard.log"); }
};

std::string settings(const std::string& names, const std::string& state) {
    return R"(configuration settings:
  crypto_if=pkcs11
  capi_openssl_engine_dll=.\capi.dll
  capi_csp_name=Microsoft Base Smart Card Crypto Provider
  capi_key_type=)" +
           std::string(names.empty() ? "SIGNATURE" : "unknown [val=0]") + R"(
  pkcs11_openssl_engine_dll=.\pkcs11.dll
  pkcs11_module_dll=itp11.dll
  capi_store_openssl_engine_dll=.\capi.dll
  capi_store_cert_store_name=MY
  priv_key_name=)" +
           (names.empty() ? "" : names + "private") + R"(
  cert_name=)" +
           (names.empty() ? "" : names + "cert") + R"(
  kuse_filter_type=all
  kuse_filter=none
  xkuse_filter_type=all
  xkuse_nid_filter=
  logfile=ossl_scard.log
  logfile_severity=info|warn|error|fatal
  logfile_append=false
additional settings:
)" + state;
}

const std::string whole_log = R"(<info> using OpenSSL smart card interface version 4
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
)" + settings("", R"(  cfg_state=initialized
  is_pin_required=false
  pin specified=false
  need_ossl_reload=false
)") + R"(<info> init done.
<info> called: Kes::OsslScardIfImp::read_scard()
<info> slot: manufacturer=Slot maker, description=Slot 1
<info> token:
<info>   label:         Card 1
<info>   manufacturer:  Card maker
<info>   model:         Model 7
<info>   serialnr:      0042
<info>   loginRequired: 1
<info>   secureLogin:   0
<info> libp11 read smart card
<info> called: Kes::OsslScardIfImp::is_pin_required()
<info> called: Kes::OsslScardIfImp::set_pin()
<info> setting pin
<info> called: Kes::OsslScardIfImp::discover_keys()
<info> started scanning of PKCS#11 objects
<info> pin required - need login
<info> logged-in successfully
<info> handling Card 1: Login [type=certificate, key_type=0, name=pkcs11:token=Card 1;id=%01;type=cert, cluster_name=%01]
<info> handling Card 1: Login [type=private_key, key_type=0, name=pkcs11:token=Card 1;id=%01;type=private, cluster_name=%01]
<info>   corresponding cert:
Card 1: Login [type=certificate, key_type=0, name=pkcs11:token=Card 1;id=%01;type=cert, cluster_name=%01]
<info> key usage:
  _kuse_mask="key_encipherment|digital_signature" (0xa0)
  _xkuse_mask="ssl_client" (0x2)
  _xkuse_nid_list="1.3.6.1.5.5.7.3.2"
<info> key usage check returned: 1
<info> extended key usage check returned: 1
<info> handling Card 1: Login [type=public_key, key_type=0, name=pkcs11:token=Card 1;id=%01;type=public, cluster_name=%01]
<info> finished scanning of PKCS#11 objects
<info> Card 1: Login [type=certificate, key_type=0, name=pkcs11:token=Card 1;id=%01;type=cert, cluster_name=%01]
Card 1: Login [type=private_key, key_type=0, name=pkcs11:token=Card 1;id=%01;type=private, cluster_name=%01]
Card 1: Login [type=public_key, key_type=0, name=pkcs11:token=Card 1;id=%01;type=public, cluster_name=%01]
<info> called: Kes::OsslScardIfImp::get_key_name()
<info> called: Kes::OsslScardIfImp::set_key(key_num)
<info> setting key type: 0
<info> setting private key name: pkcs11:token=Card 1;id=%01;type=private
<info> setting certificate name: pkcs11:token=Card 1;id=%01;type=cert
<info> called: Kes::OsslScardIfImp::set_key(key_type, key_id)
<info> setting key type: 0
<info> setting private key name: pkcs11:token=Card 1;id=%01;type=private
<info> setting certificate name: pkcs11:token=Card 1;id=%01;type=cert
<info> called: Kes::OsslScardIfImp::notify_config_done()
<info> OpenSSL smart card manager settings:
)" + settings("pkcs11:token=Card 1;id=%01;type=", R"(  cfg_state=configured
  is_pin_required=true
  pin specified=true
  need_ossl_reload=true
)") + R"(<info> configuration done.
<info> called: Kes::OsslScardIfImp::ossl_load()
<info> loaded engine: id=pkcs11
<info> read private key: pkcs11:token=Card 1;id=%01;type=private
<info> read certificate: pkcs11:token=Card 1;id=%01;type=cert
<info> certificate info:
<info>   subject: C=AT, O=Test Makers, CN=Rita RSA
<info>   issuer:  C=AT, O=Test Makers, CN=Test CA
<info> called: Kes::OsslScardIfImp::ossl_get_private_key()
<info> called: Kes::OsslScardIfImp::ossl_get_certificate()
<info> called: Kes::OsslScardIfImp::ossl_unload()
<info> freed certificate
<info> freed key
<info> called: Kes::OsslScardIfImp::destroy()
<info> unloading engine: id=pkcs11
<info> libp11 destroyed
<info> OpenSSL smart card manager stopped.
)";

/// The log with "\n" for its line ends and without what differs from run to run and from build to build; each
/// end that is not CRLF shows.
std::string readable(const std::string& log) {
    std::string text;
    for (std::string line : split_lines(log)) {
        if (line.ends_with('\r'))
            line.pop_back();
        else
            line += "<no carriage return>";
        line = without_header(line);
        if (line.starts_with("Compiled at ")) line = "Compiled at BUILD";
        if (line.starts_with("Copyright ")) line = "HOLDER";
        text += line + '\n';
    }
    return text;
}

TEST_F(RoadFolderTest, WithDefaultNamesTheWholeSequenceWorksAndIsLoggedLineByLine) {
    ASSERT_EQ(run_client(all_operations), 0);
    EXPECT_EQ(run_client(all_operations + 1), 2); // so there are that many
    const std::string log = read_file(log_file());
    EXPECT_EQ(readable(log), whole_log);
    EXPECT_EQ(log.find("\r\r"), std::string::npos);
    EXPECT_TRUE(log.ends_with("\r\n"));
}

TEST_F(RoadFolderTest, AFailingLoginIsLoggedWithItsCause) {
    card.set("pin_sha256", "another PIN's");
    EXPECT_EQ(run_client(all_operations), 1);
    const std::string log = masked_errors(readable(read_file(log_file())));
    const std::string begin = whole_log.substr(0, whole_log.find("<info> logged-in successfully"));
    EXPECT_EQ(log,
              begin +
                  "<error> libp11_helper:190 Kes::Libp11Init::authenticate(): PKCS11_login() failed: rc=-1\n"
                  "error:PKCS#11 module:PIN incorrect:PKCS11_login\n"
                  "<info> called: Kes::OsslScardIfImp::get_last_error_msg()\n");
    forgotten = {"card: 1", "ctx1: 1", "module of ctx1: 1",
                 "slots1: 1"}; // the client ended without destroy()
}

TEST_F(RoadFolderTest, AProcessThatEndsAfterAnyOperationEndsWell) {
    for (int operations = 0; operations < all_operations; ++operations)
        EXPECT_EQ(run_client(operations), 0) << operations;
    EXPECT_EQ(card.violations(), Lines());
    forgotten = card.unbalanced(); // all of them ended without destroy()
}

} // namespace
} // namespace Kes::test
