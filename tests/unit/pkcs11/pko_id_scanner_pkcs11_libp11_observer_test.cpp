#include "pkcs11/pko_id_scanner_pkcs11_libp11.h"

#include "support/core_fixture.h"
#include "support/key_findings.h"

namespace Kes::test {
namespace {

class Pkcs11Libp11PkoIdScannerObserverTest : public CoreTest {
protected:
    /// Scans the token with an observer. @return what the observer has learned
    Lines scan(FilterType type = FilterType::all, bool skips_login = false) {
        Libp11Init context("module.so");
        context.read_scard();
        auto scanner = std::make_unique<Pkcs11Libp11PkoIdScanner>(
            &context,
            std::make_unique<CertKeyUsageFilter>(type, 0x80, FilterType::exact, "1.3.6.1.5.5.7.3.2"));
        KeyFindings findings;
        scanner->set_observer(&findings);
        if (skips_login) scanner->skip_login();
        PkoIdList list;
        list.register_scanner(std::move(scanner));
        script().take_calls();
        list.scan(Pin("1234"));
        calls = script().take_calls();
        return findings.lines;
    }

    static std::string record(const std::string& type, const std::string& word, const std::string& id,
                              const std::string& label) {
        return "Token 1: " + label + " [type=" + type + ", key_type=0, name=pkcs11:token=Token 1;id=" + id +
               ";type=" + word + ", cluster_name=" + id + "]; ";
    }

    static std::string key(const std::string& id, const std::string& label) {
        return "key " + record("private_key", "private", id, label);
    }

    static ScriptedObject labelled(const char* label, unsigned char id, X509* x509 = nullptr) {
        return {label, {id}, x509};
    }

    Lines calls;
};

TEST_F(Pkcs11Libp11PkoIdScannerObserverTest, EveryKeyIsReportedWithItsVerdictInTheOrderOfTheToken) {
    token().certs = {labelled("Encipher", 1, data().encipher.get()),
                     labelled("Client", 2, data().client.get()), labelled("Bare", 3, data().bare.get()),
                     labelled("Broken", 4)};
    token().private_keys = {labelled("Client", 2), labelled("Lone", 9), labelled("Encipher", 1),
                            labelled("Bare", 3), labelled("Broken", 4)};
    EXPECT_EQ(scan(FilterType::exact),
              (Lines{key("%02", "Client") + "Test Client; usage 160; offered",
                     key("%09", "Lone") + "no X509; no usage; no certificate",
                     key("%01", "Encipher") + "Encipher Only; usage 32; wrong key usage",
                     key("%03", "Bare") + "No Usage; usage 0; wrong key usage",
                     key("%04", "Broken") + "no X509; usage 0; wrong key usage"}));
}

TEST_F(Pkcs11Libp11PkoIdScannerObserverTest, ExtendedKeyUsageIsNamedIfOnlyItIsWrong) {
    token().certs = {labelled("Encipher", 1, data().encipher.get())};
    token().private_keys = {labelled("Encipher", 1)};
    EXPECT_EQ(scan(), Lines{key("%01", "Encipher") + "Encipher Only; usage 32; wrong extended key usage"});
}

TEST_F(Pkcs11Libp11PkoIdScannerObserverTest, CertificateWithoutAKeyIsReportedWithTheVerdictOfItsKey) {
    token().certs = {labelled("Client", 2, data().client.get()),
                     labelled("Encipher", 1, data().encipher.get())};
    token().private_keys.clear();
    EXPECT_EQ(scan(FilterType::exact),
              (Lines{"lone certificate " + record("certificate", "cert", "%02", "Client") +
                         "Test Client; usage 160; offered",
                     "lone certificate " + record("certificate", "cert", "%01", "Encipher") +
                         "Encipher Only; usage 32; wrong key usage"}));
}

TEST_F(Pkcs11Libp11PkoIdScannerObserverTest, ScanWithoutLoginFindsOnlyWhatIsVisible) {
    EXPECT_EQ(scan(FilterType::all, true),
              Lines{"lone certificate " + record("certificate", "cert", "%01%ab", "Auth key") +
                    "Test Client; usage 160; offered"});
    EXPECT_EQ(calls, (Lines{"PKCS11_enumerate_certs(token1.1)", "PKCS11_enumerate_keys(token1.1)",
                            "PKCS11_enumerate_public_keys(token1.1)"}));
}

TEST_F(Pkcs11Libp11PkoIdScannerObserverTest, ObserverChangesNoCallOfTheScan) {
    scan();
    EXPECT_EQ(calls, (Lines{"PKCS11_is_logged_in(slot1.1, user)", "PKCS11_login(slot1.1, user, right pin)",
                            "PKCS11_enumerate_certs(token1.1)", "PKCS11_enumerate_keys(token1.1)",
                            "PKCS11_enumerate_public_keys(token1.1)"}));
}

} // namespace
} // namespace Kes::test
