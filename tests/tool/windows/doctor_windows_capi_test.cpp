// The command doctor on Windows with the back-ends of CryptoAPI and the test card.
#include "doctor_windows_run.h"

#include <fstream>

#include "support/csp_card.h"
#include "support/system_store.h"
#include "support/windows_error.h"

namespace Kes::test {
namespace {

/// Settings with which the keys of CryptoAPI can serve every handshake.
class DoctorCapiTest : public DoctorWindowsTest {
protected:
    DoctorCapiTest() {
        put(fs::path(MARVO_BIN_DIR) / "capi.dll");
        std::ofstream(dir_.file("openssl.cnf")) << "openssl_conf = start\n[start]\nssl_conf = ssl\n[ssl]\n"
                                                   "system_default = tls\n[tls]\nMaxProtocol = TLSv1.2\n";
        csp_card_.add("sign");
    }

    const CspCard csp_card_;

private:
    EnvVar config_{"OPENSSL_CONF", dir_.file("openssl.cnf")};
};

const std::string tls_abilities =
    "TLS 1.2 only, with rsa_pkcs1_sha256, rsa_pkcs1_sha384 and rsa_pkcs1_sha512.";

TEST_F(DoctorCapiTest, CardWithoutMistakesHasNoErrors) {
    set("crypto_if", "capi");
    set("capi_openssl_engine_dll", file("capi.dll"));
    EXPECT_EQ(mistakes("--key sign"), Lines{});
    EXPECT_EQ(lines("key in effect", "--key sign"), Lines{"ok      key in effect: the key sign is offered."});
    EXPECT_EQ(lines("TLS"), Lines{"ok      TLS: the key sign can serve " + tls_abilities});
}

TEST_F(DoctorCapiTest, MissingCardIsReported) {
    set("crypto_if", "capi");
    set("capi_openssl_engine_dll", file("capi.dll"));
    csp_card_.pull_out();
    EXPECT_EQ(
        mistakes(),
        (Lines{
            "error   engine: ossl_engine_capi:155 Kes::CapiOsslEngine::CapiOsslEngine(): "
            "ENGINE_ctrl_cmd_string(csp_name) failed: rc=0; lib(129): cryptacquirecontext error: Error code= "
            "0x8010000C. Remedy: If the check 'card' finds an error too, follow its remedy first, because "
            "this "
            "engine opens the card; otherwise, set the engine's path to the file of OpenSSL's engine for "
            "this back-end.",
            "error   card: capi_helper:79 Kes::CapiInit::CapiInit(): CryptAcquireContext() with "
            "prov_name=Microsoft Base Smart Card Crypto Provider, key_container_name=nullptr, "
            "flags=0xf0000000 failed: " +
                windows_error(0x8010000c) +
                ". Remedy: Insert the card, and check that its reader is connected and its driver "
                "installed."}));
}

/// Uses the store "MY". All tests share it and must not run at the same time.
class DoctorMyStoreTest : public DoctorCapiTest {
protected:
    DoctorMyStoreTest() {
        const KeyPlace place = on_card("sign", signature);
        store_.add(prepared_certificate("sign", signature), &place);
        set("crypto_if", "capi_store");
        set("capi_store_openssl_engine_dll", file("capi.dll"));
    }
    ~DoctorMyStoreTest() override { store_.remove(); }

    SystemStore store_{"MY"};
};

TEST_F(DoctorMyStoreTest, StoreWithoutMistakesHasNoErrors) {
    EXPECT_EQ(mistakes(), Lines{});
    EXPECT_EQ(lines("TLS"),
              Lines{"ok      TLS: the key AT, Test Makers, Sigrid Signature can serve " + tls_abilities});
}

} // namespace
} // namespace Kes::test
