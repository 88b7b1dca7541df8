// Tests of the engine with a certificate store of Windows and the test card.
#include "capi/ossl_engine_capi_store.h"

#include <algorithm>
#include <memory>
#include <openssl/x509.h>

#include "support/csp_card_fixture.h"
#include "utils/certstore_win.h"

namespace Kes::test {
namespace {

class CapiStoreOsslEngineTest : public CardTest {
protected:
    CapiStoreOsslEngineTest() {
        const KeyPlace place = on_card("both", signature);
        system_store.add(prepared_certificate("both", signature), &place);
        engine = std::make_unique<CapiStoreOsslEngine>(".\\capi.dll", system_store.name().c_str(), "");
    }
    void TearDown() override {
        engine.reset();
        CardTest::TearDown();
    }

    TempStore system_store;
    std::unique_ptr<CapiStoreOsslEngine> engine;
};

TEST_F(CapiStoreOsslEngineTest, ReadsTheCertificateAndItsKeys) {
    const X509Ptr certificate = engine->read_certificate("Berta");
    EXPECT_EQ(der_of(certificate.get()), prepared_certificate("both", signature));
    EXPECT_EQ(
        signing_problem(engine->read_private_key("Berta").get(), certificate.get(), pkcs1_with_any_sha2), "");
    EXPECT_EQ(public_key_der(engine->read_public_key("Berta").get()),
              public_key_der(::X509_get0_pubkey(certificate.get())));
}

TEST_F(CapiStoreOsslEngineTest, KeyTypeIsIgnored) {
    engine->set_key_type(key_exchange);
    const X509Ptr certificate = engine->read_certificate("Berta");
    EXPECT_EQ(
        signing_problem(engine->read_private_key("Berta").get(), certificate.get(), pkcs1_with_any_sha2), "");
}

TEST_F(CapiStoreOsslEngineTest, NameContainedInNoSubjectIsNotFound) {
    const std::string text = "ossl_engine_capi_store:236 Kes::CapiStoreOsslEngine::read_certificate(): error "
                             "finding certificate with subject "
                             "name='Nobody': rc=0";
    EXPECT_EQ(error_text([&] { engine->read_certificate("Nobody"); }), text);
    EXPECT_EQ(error_text([&] { engine->read_public_key("Nobody"); }), text);
    EXPECT_EQ(masked_errors(error_text([&] { engine->read_private_key("Nobody"); })),
              "ossl_engine:79 Kes::OsslEngine::read_private_key(): ENGINE_load_private_key() failed: rc=0\n"
              "error:engine routines:failed loading private key:");
}

TEST_F(CapiStoreOsslEngineTest, FirstCertificateOfEqualSubjectsIsRead) {
    Lines twins{"twin_1", "twin_2", "other_twin"};
    for (const std::string& twin : twins)
        card.add(twin);
    std::sort(twins.begin(), twins.end());
    do {
        SCOPED_TRACE(::testing::PrintToString(twins));
        system_store.remove();
        for (const std::string& twin : twins) {
            const KeyPlace place = on_card(twin, signature);
            system_store.add(prepared_certificate(twin, signature), &place);
        }
        const auto store = WinCertStore::open(system_store.name());
        const X509Ptr certificate = engine->read_certificate("Twin");
        EXPECT_EQ(der_of(certificate.get()), store->first()->get_der_data()); // all subjects contain the text
        EXPECT_EQ(
            signing_problem(engine->read_private_key("Twin").get(), certificate.get(), pkcs1_with_any_sha2),
            "");
    } while (std::next_permutation(twins.begin(), twins.end()));
}

TEST_F(CapiStoreOsslEngineTest, FirstCertificateWhoseSubjectContainsTheNameIsRead) {
    for (const char* twin : {"other_twin", "twin_1", "twin_2"}) {
        card.add(twin);
        const KeyPlace place = on_card(twin, signature);
        system_store.add(prepared_certificate(twin, signature), &place);
    }
    const auto store = WinCertStore::open(system_store.name());
    auto wanted = store->first();
    while (wanted && wanted->get_subject_name_simple().find("Twin") == std::string::npos)
        wanted = store->next(*wanted);
    ASSERT_NE(wanted, nullptr);
    const X509Ptr certificate = engine->read_certificate("Twin");
    EXPECT_EQ(der_of(certificate.get()), wanted->get_der_data());
    EXPECT_EQ(signing_problem(engine->read_private_key("Twin").get(), certificate.get(), pkcs1_with_any_sha2),
              "");
    const X509Ptr other = engine->read_certificate("Twin, the Other");
    EXPECT_EQ(der_of(other.get()), prepared_certificate("other_twin", signature));
    EXPECT_EQ(
        signing_problem(engine->read_private_key("Twin, the Other").get(), other.get(), pkcs1_with_any_sha2),
        "");
}

TEST_F(CapiStoreOsslEngineTest, MissingStoreIsReported) {
    system_store.remove();
    EXPECT_EQ(error_text([&] { engine->read_certificate("Berta"); }),
              "certstore_win:61 Kes::WinCertStoreImp::WinCertStoreImp(): CertOpenStore() with name=" +
                  system_store.name() + " failed: " + windows_error(2));
}

TEST_F(CapiStoreOsslEngineTest, DanglingKeyInformationFailsOnlyTheKey) {
    const KeyPlace place = on_card("gone", signature);
    system_store.add(prepared_certificate("plain"), &place);
    EXPECT_EQ(der_of(engine->read_certificate("Paul Plain").get()), prepared_certificate("plain"));
    EXPECT_EQ(masked_errors(error_text([&] { engine->read_private_key("Paul Plain"); })),
              "ossl_engine:79 Kes::OsslEngine::read_private_key(): ENGINE_load_private_key() failed: rc=0\n"
              "error:lib:cryptacquirecontext error:Error code= 0x80090016\n"
              "error:engine routines:failed loading private key:");
}

} // namespace
} // namespace Kes::test
