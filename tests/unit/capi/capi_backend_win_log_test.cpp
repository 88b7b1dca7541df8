#include "support/capi_fixture.h"
#include "support/expected_log.h"

namespace Kes::test {
namespace {

ShownSettings settings(const char* crypto_if) {
    return {.crypto_if = crypto_if, .capi_engine = "./capi.so", .capi_csp = "Test CSP"};
}

std::string configured(const char* crypto_if, const char* key_type, const char* key_name) {
    ShownSettings shown = settings(crypto_if);
    shown.capi_key_type = key_type;
    shown.priv_key_name = shown.cert_name = key_name;
    shown.state = "configured";
    shown.reload = "true";
    return logged_settings(shown);
}

std::string start(const char* crypto_if) {
    return manager_started + version_checked +
           R"(<info> called: Kes::OsslScardIfImp::get_config_default()
<info> called: Kes::OsslScardIfImp::init()
)" + logged_settings(settings(crypto_if)) +
           "<info> init done.\n";
}

const std::string reader = "<trace> created CapiProvParamReader object\n"
                           "<trace> destroyed CapiProvParamReader object\n";
const std::string key_reader = "<trace> created CapiKeyParamReader object\n"
                               "<trace> destroyed CapiKeyParamReader object\n";
const std::string decoded = "<trace> created OsslCert [x509=ADDRESS]\n"
                            "<trace> destroyed OsslCert [x509=ADDRESS]\n";
const std::string for_signatures =
    logged_usage({"digital_signature", "0x80", "ssl_client", "0x2", "1.3.6.1.5.5.7.3.2"}) + usage_passed;
const std::string for_exchange = logged_usage({"key_encipherment", "0x20", "none", "0x0", ""}) + usage_passed;
const std::string provider_opened = reader +
                                    "<info> capi initialized (provider=Test CSP, key_container=default "
                                    "(default), flags=0xf0000000)\n";

const std::string capi_reading =
    "<info> called: Kes::OsslScardIfImp::read_scard()\n" + provider_opened + R"(<info> capi destroyed
<info> called: Kes::OsslScardIfImp::is_pin_required()
)";

const std::string capi_discovery =
    R"(<info> called: Kes::OsslScardIfImp::discover_keys()
<trace> created PkoIdScanner object
<trace> created CapiPkoIdScanner object
<info> scanning CAPI key containers
)" + provider_opened +
    reader + "<info> capi keyspec_mask=3\n" + reader + reader + reader +
    R"(<info> capi initialized (provider=Test CSP, key_container=c1, flags=0x0)
<info> fetched user key with key_type=KEYEXCHANGE
)" + key_reader +
    decoded + for_exchange + "<info> fetched user key with key_type=SIGNATURE\n" + key_reader + decoded +
    for_signatures + R"(<info> capi destroyed
<info> capi initialized (provider=Test CSP, key_container=c2, flags=0x0)
<info> no user key with key_type=KEYEXCHANGE
<info> fetched user key with key_type=SIGNATURE
)" + key_reader +
    decoded + for_signatures + R"(<info> capi destroyed
<info> capi destroyed
<info> c1 (KEYEXCHANGE) [type=private_key, key_type=1, name=c1, cluster_name=c1]
c1 (KEYEXCHANGE) [type=public_key, key_type=1, name=c1, cluster_name=c1]
c1 (KEYEXCHANGE) [type=certificate, key_type=1, name=c1, cluster_name=c1]
c1 (SIGNATURE) [type=private_key, key_type=2, name=c1, cluster_name=c1]
c1 (SIGNATURE) [type=public_key, key_type=2, name=c1, cluster_name=c1]
c1 (SIGNATURE) [type=certificate, key_type=2, name=c1, cluster_name=c1]
c2 (SIGNATURE) [type=private_key, key_type=2, name=c2, cluster_name=c2]
c2 (SIGNATURE) [type=public_key, key_type=2, name=c2, cluster_name=c2]
c2 (SIGNATURE) [type=certificate, key_type=2, name=c2, cluster_name=c2]
)";

// The test double of the engine always has the id "pkcs11".
const std::string capi_loading = R"(<info> called: Kes::OsslScardIfImp::get_key_name()
<info> called: Kes::OsslScardIfImp::set_key(key_num)
)" + logged_selection("1", "c1", "c1") +
                                 R"(<info> called: Kes::OsslScardIfImp::set_key(key_type, key_id)
)" + logged_selection("2", "c1", "c1") +
                                 R"(<info> called: Kes::OsslScardIfImp::notify_config_done()
)" + configured("capi", "SIGNATURE", "c1") +
                                 R"(<info> configuration done.
<info> called: Kes::OsslScardIfImp::ossl_load()
<debug> capi engine is using key_type=SIGNATURE
<info> loaded engine: id=pkcs11, csp='Test CSP'
<debug> capi engine is using key_type=SIGNATURE
<info> read private key: c1
<info> capi initialized (provider=Test CSP, key_container=c1, flags=0x0)
<info> fetched user key with key_type=SIGNATURE
)" + key_reader + R"(<info> read certificate: c1
<info> capi destroyed
)" + logged_certificate("C=AT, O=Test Makers, CN=Signer", "C=AT, O=Test Makers, CN=Signer");

const std::string end = R"(<info> called: Kes::OsslScardIfImp::ossl_get_private_key()
<info> called: Kes::OsslScardIfImp::ossl_get_certificate()
<info> called: Kes::OsslScardIfImp::ossl_unload()
<info> freed certificate
<info> freed key
<info> called: Kes::OsslScardIfImp::destroy()
<info> unloading engine: id=pkcs11
<info> OpenSSL smart card manager stopped.
)";

const std::string lists_end = R"(<trace> destroyed PkoIdScanner object
<trace> destroyed PkoIdList object
)";

const std::string store_opened = "<trace> created CertStore [MY]\n"
                                 "<trace> created WinCertStoreImp [MY]\n"
                                 "<trace> created WinCert [ctx=ADDRESS]\n";
const std::string store_closed = "<trace> destroyed WinCertStoreImp [MY]\n"
                                 "<trace> destroyed CertStore [MY]\n";

const std::string store_discovery =
    R"(<info> called: Kes::OsslScardIfImp::read_scard()
<info> called: Kes::OsslScardIfImp::is_pin_required()
<info> called: Kes::OsslScardIfImp::discover_keys()
<trace> created PkoIdScanner object
<trace> created CapiStorePkoIdScanner object
<info> scanning CAPI store key containers
)" + store_opened +
    R"(<info> subject='C=AT, O=Test Makers, CN=Signer'; issuer='C=AT, O=Test Makers, CN=Signer'
)" + decoded +
    for_signatures + R"(<trace> created WinCert [ctx=ADDRESS]
<trace> destroyed WinCert [ctx=ADDRESS]
<info> subject='C=AT, O=Test Makers, CN=Exchanger'; issuer='C=AT, O=Test Makers, CN=Exchanger'
)" + decoded +
    for_exchange + R"(<trace> destroyed WinCert [ctx=ADDRESS]
<info> found 2 certs in store MY
)" + store_closed +
    R"(<info> AT, Test Makers, Signer [type=private_key, key_type=0, name=AT, Test Makers, Signer, cluster_name=AT, Test Makers, Signer]
AT, Test Makers, Signer [type=public_key, key_type=0, name=AT, Test Makers, Signer, cluster_name=AT, Test Makers, Signer]
AT, Test Makers, Signer [type=certificate, key_type=0, name=AT, Test Makers, Signer, cluster_name=AT, Test Makers, Signer]
AT, Test Makers, Exchanger [type=private_key, key_type=0, name=AT, Test Makers, Exchanger, cluster_name=AT, Test Makers, Exchanger]
AT, Test Makers, Exchanger [type=public_key, key_type=0, name=AT, Test Makers, Exchanger, cluster_name=AT, Test Makers, Exchanger]
AT, Test Makers, Exchanger [type=certificate, key_type=0, name=AT, Test Makers, Exchanger, cluster_name=AT, Test Makers, Exchanger]
)";

const std::string store_loading = R"(<info> called: Kes::OsslScardIfImp::get_key_name()
<info> called: Kes::OsslScardIfImp::set_key(key_num)
)" + logged_selection("0", "AT, Test Makers, Signer", "AT, Test Makers, Signer") +
                                  R"(<info> called: Kes::OsslScardIfImp::set_key(key_type, key_id)
)" + logged_selection("0", "AT, Test Makers, Exchanger", "AT, Test Makers, Exchanger") +
                                  R"(<info> called: Kes::OsslScardIfImp::notify_config_done()
)" + configured("capi_store", "unknown [val=0]", "AT, Test Makers, Exchanger") +
                                  R"(<info> configuration done.
<info> called: Kes::OsslScardIfImp::ossl_load()
<info> loaded engine: id=pkcs11
<info> read private key: AT, Test Makers, Exchanger
)" + store_opened + "<info> read certificate: AT, Test Makers, Exchanger\n" +
                                  decoded + "<trace> destroyed WinCert [ctx=ADDRESS]\n" + store_closed +
                                  logged_certificate("C=AT, O=Test Makers, CN=Exchanger",
                                                     "C=AT, O=Test Makers, CN=Exchanger");

class CapiBackendLogTest : public CapiScardTest {
protected:
    void run(OsslScardCfg::CryptoIf crypto_if, unsigned int key_type, const char* key_id) {
        ASSERT_EQ(scard().version_check(4), 0);
        OsslScardCfg& cfg = make_capi_config(crypto_if);
        cfg.set_logfile(dir.file("log").c_str());
        cfg.set_logfile_severity(63);
        ASSERT_EQ(scard().init(&cfg), 0);
        ASSERT_EQ(scard().read_scard(), 0);
        ASSERT_FALSE(scard().is_pin_required());
        std::size_t count = 0;
        ASSERT_EQ(scard().discover_keys(&count), 0);
        ASSERT_NE(scard().get_key_name(0), nullptr);
        ASSERT_EQ(scard().set_key(std::size_t{0}), 0);
        ASSERT_EQ(scard().set_key(key_type, key_id), 0);
        ASSERT_EQ(scard().notify_config_done(), 0);
        ASSERT_EQ(scard().ossl_load(), 0);
        evp_pkey_st* key = nullptr;
        x509_st* cert = nullptr;
        ASSERT_EQ(scard().ossl_get_private_key(&key), 0);
        ASSERT_EQ(scard().ossl_get_certificate(&cert), 0);
        EXPECT_NE(key, nullptr);
        EXPECT_NE(cert, nullptr);
        ASSERT_EQ(scard().ossl_unload(), 0);
        scard().destroy();
    }

    /// The log without the parts that differ between runs, builds and folders.
    std::string log() const {
        std::string text;
        for (const std::string& line : without_addresses(log_lines(dir.file("log"))))
            text += (line.starts_with("  logfile=") ? "  logfile=LOGFILE" : without_build(line)) + '\n';
        return text;
    }

    TempDir dir;
};

TEST_F(CapiBackendLogTest, TypicalRunWithAProviderIsLoggedInFull) {
    run(OsslScardCfg::capi, AT_SIGNATURE, "c1");
    EXPECT_EQ(log(), start("capi") + capi_reading + capi_discovery + capi_loading + end +
                         "<trace> destroyed CapiPkoIdScanner object\n" + lists_end);
}

TEST_F(CapiBackendLogTest, TypicalRunWithAStoreIsLoggedInFull) {
    capi().stores.at(0).certs.resize(2);
    run(OsslScardCfg::capi_store, 0, "AT, Test Makers, Exchanger");
    EXPECT_EQ(log(), start("capi_store") + store_discovery + store_loading + end +
                         "<trace> destroyed CapiStorePkoIdScanner object\n" + lists_end);
}

} // namespace
} // namespace Kes::test
