// The log of a typical run with each CryptoAPI back-end, complete except for the lines before "started".
#include <algorithm>

#include "capi_client_fixture.h"
#include "support/expected_log.h"
#include "support/system_store.h"

namespace Kes::test {
namespace {

const Lines beginning{
    "<info> OpenSSL smart card manager started.",
    "<info> called: Kes::OsslScardIfImp::get_config_default()",
    "<info> called: Kes::OsslScardIfImp::init()",
};

ShownSettings settings(const std::string& crypto_if) {
    return {.crypto_if = crypto_if, .logfile = "ossl_scard.log", .severity = "info|warn|error|fatal"};
}

Lines initialized(const std::string& crypto_if) {
    return split_lines(logged_settings(settings(crypto_if)) + "<info> init done.\n");
}

Lines configured(const std::string& crypto_if, const std::string& key_type, const std::string& key_name) {
    ShownSettings shown = settings(crypto_if);
    shown.capi_key_type = key_type;
    shown.priv_key_name = shown.cert_name = key_name;
    shown.state = "configured";
    shown.reload = "true";
    return split_lines(logged_settings(shown) + "<info> configuration done.\n");
}

const Lines usage = split_lines(
    logged_usage({"digital_signature", "0x80", "ssl_client", "0x2", "1.3.6.1.5.5.7.3.2"}) + usage_passed);

const Lines certificate_and_end{
    "<info> certificate info:",
    "<info>   subject: C=AT, O=Test Makers, CN=Sigrid Signature",
    "<info>   issuer:  CN=Test Card CA",
    "<info> called: Kes::OsslScardIfImp::ossl_get_private_key()",
    "<info> called: Kes::OsslScardIfImp::ossl_get_certificate()",
    "<info> called: Kes::OsslScardIfImp::ossl_unload()",
    "<info> freed certificate",
    "<info> freed key",
    "<info> called: Kes::OsslScardIfImp::destroy()",
    "<info> unloading engine: id=capi",
    "<info> OpenSSL smart card manager stopped.",
};

Lines joined(const std::vector<Lines>& parts) {
    Lines all;
    for (const Lines& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

class LogTest : public CapiClientTest {
protected:
    /// Loads and unloads key 0.
    /// @return the log from the start of the manager on
    Lines log_of_run() {
        EXPECT_TRUE(discover());
        EXPECT_EQ(num_keys, 1U);
        EXPECT_EQ(scard().set_key(std::size_t{0}), 0) << error();
        EXPECT_TRUE(load());
        EXPECT_NE(key(), nullptr);
        EXPECT_NE(certificate(), nullptr);
        EXPECT_EQ(scard().ossl_unload(), 0) << error();
        scard().destroy();
        Lines lines = log();
        const auto start = std::find(lines.begin(), lines.end(), beginning.front());
        return {start, lines.end()};
    }
};

Lines selected(const std::string& key_type, const std::string& name) {
    return split_lines("<info> called: Kes::OsslScardIfImp::set_key(key_num)\n" +
                       logged_selection(key_type, name, name) +
                       "<info> called: Kes::OsslScardIfImp::notify_config_done()\n");
}

Lines listed(const std::string& display_name, const std::string& key_type, const std::string& name) {
    const std::string end = ", key_type=" + key_type + ", name=" + name + ", cluster_name=" + name + "]";
    return {
        "<info> " + display_name + " [type=private_key" + end,
        display_name + " [type=public_key" + end,
        display_name + " [type=certificate" + end,
    };
}

const std::string on_provider =
    "<info> capi initialized (provider=Microsoft Base Smart Card Crypto Provider, "
    "key_container= (default), flags=0xf0000000)";
const std::string on_container = "<info> capi initialized (provider=Microsoft Base Smart Card Crypto "
                                 "Provider, key_container=sign, flags=0x0)";

class CardLogTest : public LogTest {};

TEST_F(CardLogTest, TypicalRunWithCapiWritesExactlyTheExpectedLines) {
    card.add("sign");
    EXPECT_EQ(
        log_of_run(),
        joined({
            beginning,
            initialized("capi"),
            {"<info> called: Kes::OsslScardIfImp::read_scard()", on_provider, "<info> capi destroyed",
             "<info> called: Kes::OsslScardIfImp::discover_keys()", "<info> scanning CAPI key containers",
             on_provider, "<info> capi keyspec_mask=3", on_container,
             "<info> no user key with key_type=KEYEXCHANGE",
             "<info> fetched user key with key_type=SIGNATURE"},
            usage,
            {"<info> capi destroyed", "<info> capi destroyed"},
            listed("sign (SIGNATURE)", "2", "sign"),
            selected("2", "sign"),
            configured("capi", "SIGNATURE", "sign"),
            {"<info> called: Kes::OsslScardIfImp::ossl_load()",
             "<info> loaded engine: id=capi, csp='Microsoft Base Smart Card Crypto Provider'",
             "<info> read private key: sign", on_container, "<info> fetched user key with key_type=SIGNATURE",
             "<info> read certificate: sign", "<info> capi destroyed"},
            certificate_and_end,
        }));
}

/// Uses the store "MY", which it shares with other tests.
class MyStoreLogTest : public LogTest {
protected:
    ~MyStoreLogTest() override { store.remove(); }

    SystemStore store{"MY"};
};

TEST_F(MyStoreLogTest, TypicalRunWithCapiStoreWritesExactlyTheExpectedLines) {
    const KeyPlace place = on_card("sign", signature);
    card.add("sign");
    store.add(prepared_certificate("sign", signature), &place);
    crypto_if = OsslScardCfg::capi_store;
    const std::string name = "AT, Test Makers, Sigrid Signature";
    EXPECT_EQ(log_of_run(),
              joined({
                  beginning,
                  initialized("capi_store"),
                  {"<info> called: Kes::OsslScardIfImp::read_scard()",
                   "<info> called: Kes::OsslScardIfImp::discover_keys()",
                   "<info> scanning CAPI store key containers",
                   "<info> subject='C=AT, O=Test Makers, CN=Sigrid Signature'; issuer='CN=Test Card CA'"},
                  usage,
                  {"<info> found 1 certs in store MY"},
                  listed(name, "0", name),
                  selected("0", name),
                  configured("capi_store", "unknown [val=0]", name),
                  {"<info> called: Kes::OsslScardIfImp::ossl_load()", "<info> loaded engine: id=capi",
                   "<info> read private key: " + name, "<info> read certificate: " + name},
                  certificate_and_end,
              }));
}

} // namespace
} // namespace Kes::test
