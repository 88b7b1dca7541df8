// All files are in one folder, which is the program's folder and the working directory. All settings except
// the back-end have their defaults.
#include "pkcs11_client_fixture.h"
#include "support/child.h"
#include "support/expected_log.h"

namespace Kes::test {
namespace {

const std::filesystem::path programs = MARVO_PROGRAMS_DIR;
const std::filesystem::path doubles = MARVO_DOUBLES_DIR;

constexpr int all_operations = 13;

/// A folder that contains only a client and the DLLs that it needs.
class Pkcs11FolderTest : public Pkcs11ClientTest {
protected:
    Pkcs11FolderTest() {
        for (const char* name : {"windows_pkcs11_client.exe", "libmarvo-4.dll", "libcrypto-3-x64.dll"})
            std::filesystem::copy_file(programs / name, dir.file(name));
        for (const char* name : {"libp11.dll", "itp11.dll", "pkcs11.dll"})
            std::filesystem::copy_file(doubles / name, dir.file(name));
        std::filesystem::current_path(programs); // has none of the test doubles
    }

    long long run_client(int operations) const {
        return run_program(dir.file("windows_pkcs11_client.exe"), std::to_string(operations), dir.path());
    }

    std::string log_file() const { return dir.file("ossl_scard.log"); }
};

const ShownSettings initialized{.logfile = "ossl_scard.log", .severity = "info|warn|error|fatal"};

const ShownSettings configured{.capi_key_type = "unknown [val=0]",
                               .priv_key_name = private_uri,
                               .cert_name = cert_uri,
                               .logfile = "ossl_scard.log",
                               .severity = "info|warn|error|fatal",
                               .state = "configured",
                               .pin = "true",
                               .reload = "true"};

const std::string selection = logged_selection("0", private_uri, cert_uri);

const std::string whole_log =
    manager_started + version_checked + R"(<info> called: Kes::OsslScardIfImp::get_config_default()
<info> called: Kes::OsslScardIfImp::init()
<info> ctx: manufacturer=Module maker, description=Module
<info> libp11 initialized
)" + logged_settings(initialized) +
    "<info> init done.\n" +
    logged_reading(
        {"manufacturer=Slot maker, description=Slot 1", "Card 1", "Card maker", "Model 7", "0042"}) +
    logged_scan_start(false) +
    logged_scan("Card 1", "Login", "%01",
                {"key_encipherment|digital_signature", "0xa0", "ssl_client", "0x2", "1.3.6.1.5.5.7.3.2"}) +
    R"(<info> called: Kes::OsslScardIfImp::get_key_name()
<info> called: Kes::OsslScardIfImp::set_key(key_num)
)" + selection +
    "<info> called: Kes::OsslScardIfImp::set_key(key_type, key_id)\n" + selection +
    "<info> called: Kes::OsslScardIfImp::notify_config_done()\n" + logged_settings(configured) +
    R"(<info> configuration done.
<info> called: Kes::OsslScardIfImp::ossl_load()
<info> loaded engine: id=pkcs11
<info> read private key: pkcs11:token=Card 1;id=%01;type=private
<info> read certificate: pkcs11:token=Card 1;id=%01;type=cert
)" + logged_certificate("C=AT, O=Test Makers, CN=Rita RSA", "C=AT, O=Test Makers, CN=Test CA") +
    R"(<info> called: Kes::OsslScardIfImp::ossl_get_private_key()
<info> called: Kes::OsslScardIfImp::ossl_get_certificate()
<info> called: Kes::OsslScardIfImp::ossl_unload()
<info> freed certificate
<info> freed key
<info> called: Kes::OsslScardIfImp::destroy()
<info> unloading engine: id=pkcs11
<info> libp11 destroyed
<info> OpenSSL smart card manager stopped.
)";

/// The log without what differs between runs and builds. Line ends become "\n"; a line that does not end with
/// CRLF is marked.
std::string readable(const std::string& log) {
    std::string text;
    for (std::string line : split_lines(log)) {
        if (line.ends_with('\r'))
            line.pop_back();
        else
            line += "<no carriage return>";
        text += without_build(without_header(line)) + '\n';
    }
    return text;
}

TEST_F(Pkcs11FolderTest, WholeSequenceWorksWithDefaultNamesAndIsLogged) {
    ASSERT_EQ(run_client(all_operations), 0);
    EXPECT_EQ(run_client(all_operations + 1), 2); // so all_operations is the exact number
    const std::string log = read_file(log_file());
    EXPECT_EQ(readable(log), whole_log);
    EXPECT_EQ(log.find("\r\r"), std::string::npos);
    EXPECT_TRUE(log.ends_with("\r\n"));
}

TEST_F(Pkcs11FolderTest, FailedLoginIsLoggedWithItsCause) {
    card.set("pin_sha256", "another PIN's");
    EXPECT_EQ(run_client(all_operations), 1);
    const std::string log = masked_errors(readable(read_file(log_file())));
    const std::string begin = whole_log.substr(0, whole_log.find("<info> logged-in successfully"));
    EXPECT_EQ(log,
              begin +
                  "<error> libp11_helper:190 Kes::Libp11Init::authenticate(): PKCS11_login() failed: rc=-1\n"
                  "error:PKCS#11 module:PIN incorrect:PKCS11_login\n"
                  "<info> called: Kes::OsslScardIfImp::get_last_error_msg()\n");
    // The client exits without destroy().
    expected_leaks = {"card: 1", "ctx1: 1", "module of ctx1: 1", "slots1: 1"};
}

TEST_F(Pkcs11FolderTest, ProcessThatEndsAfterAnyOperationExitsCleanly) {
    for (int operations = 0; operations < all_operations; ++operations)
        EXPECT_EQ(run_client(operations), 0) << operations;
    EXPECT_EQ(card.violations(), Lines());
    expected_leaks = card.unbalanced(); // every client exited without destroy()
}

} // namespace
} // namespace Kes::test
