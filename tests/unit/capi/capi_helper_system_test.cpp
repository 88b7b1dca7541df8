// The classes of the capi road on the real functions of Windows.
#include <openssl/x509.h>

#include <memory>
#include <optional>
#include <sstream>
#include <utility>

#include "capi/capi_helper.h"
#include "capi/ossl_engine_capi.h"
#include "capi/pko_id_scanner_capi.h"
#include "support/csp_card_fixture.h"
#include "utils/error.h"

namespace Kes::test {
namespace {

constexpr unsigned long removed_card = 0x80100069; // SCARD_W_REMOVED_CARD
constexpr unsigned long bad_type = 0x8009000a;     // NTE_BAD_TYPE

Bytes public_key_of(const Bytes& certificate) {
    const unsigned char* next = certificate.data();
    const X509Ptr x509(::d2i_X509(nullptr, &next, static_cast<long>(certificate.size())));
    return public_key_der(::X509_get0_pubkey(x509.get()));
}

class CapiInitTest : public CardTest {};

TEST_F(CapiInitTest, ASecondKeyIsFetchedAfterTheFirstWasDestroyed) {
    {
        CapiInit capi(card_provider, "both", 0);
        capi.fetch_key(signature);
        capi.fetch_key(key_exchange);
    }
    EXPECT_EQ(card.calls(), (Lines{"acquire@both", "user_key_2@both", "destroy_key@both", "user_key_1@both",
                                   "destroy_key@both", "release@both"}));
    EXPECT_EQ(log.lines(),
              (Lines{"<info> capi initialized (provider=Microsoft Base Smart Card Crypto Provider, "
                     "key_container=both, flags=0x0)",
                     "<info> fetched user key with key_type=SIGNATURE",
                     "<info> fetched user key with key_type=KEYEXCHANGE", "<info> capi destroyed"}));
}

TEST_F(CapiInitTest, WithoutNamesItTellsWhichProviderIsTheDefault) {
    HCRYPTPROV provider = 0;
    ASSERT_TRUE(::CryptAcquireContextA(&provider, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
    char name[256] = "";
    DWORD size = sizeof name;
    EXPECT_TRUE(::CryptGetProvParam(provider, PP_NAME, reinterpret_cast<BYTE*>(name), &size, 0));
    char container[256] = ""; // without a container it may have no name for one
    size = sizeof container;
    ::CryptGetProvParam(provider, PP_CONTAINER, reinterpret_cast<BYTE*>(container), &size, 0);
    ::CryptReleaseContext(provider, 0);
    const CapiInit capi(nullptr, nullptr, 0);
    EXPECT_EQ(log.lines().back(), std::string("<info> capi initialized (provider=") + name +
                                      " (default), key_container=" + container +
                                      " (default), flags=0xf0000000)");
}

TEST_F(CapiInitTest, AContainerThatDoesNotExistIsReported) {
    EXPECT_EQ(error_text([] { const CapiInit capi(card_provider, "gone", 0); }),
              "capi_helper:79 Kes::CapiInit::CapiInit(): CryptAcquireContext() with prov_name=Microsoft Base "
              "Smart Card "
              "Crypto Provider, key_container_name=gone, flags=0x0 failed: " +
                  windows_error(0x80090016));
}

TEST_F(CapiInitTest, AKeyThatTheContainerDoesNotHaveIsReported) {
    card.add("sign");
    CapiInit capi(card_provider, "sign", 0);
    EXPECT_EQ(
        error_text([&] { capi.fetch_key(key_exchange); }),
        "capi_helper:113 Kes::CapiInit::fetch_key(): CryptGetUserKey() with key_type=KEYEXCHANGE failed: " +
            windows_error(0x8009000d));
}

TEST_F(CapiInitTest, ACertificateOfTheCardIsReadByteForByte) {
    CapiInit capi(card_provider, "both", 0);
    for (const unsigned int key_spec : {key_exchange, signature}) {
        capi.fetch_key(key_spec);
        EXPECT_EQ(read_capi_key_certificate(capi.key()), prepared_certificate("both", key_spec));
    }
}

TEST_F(CapiInitTest, APublicKeyIsReadAsItStandsInTheCertificate) {
    const CapiInit capi(card_provider, "both", 0);
    for (const unsigned int key_spec : {key_exchange, signature})
        EXPECT_EQ(CapiPubKey(capi.provider(), key_spec).der(),
                  public_key_of(prepared_certificate("both", key_spec)));
}

TEST_F(CapiInitTest, AParameterThatTheProviderDoesNotKnowIsUnsupported) {
    CapiInit capi(card_provider, "both", 0);
    capi.fetch_key(signature);
    card.fail("key_specs_size", bad_type);
    card.fail("certificate_size", bad_type);
    EXPECT_EQ(error_text([&] { const CapiProvParamReader reader(capi.provider(), PP_KEYSPEC, 0); }),
              "capi_helper:244 Kes::CapiProvParamReader::read_len(): CryptGetProvParam() with param=39, "
              "flags=0 is not "
              "supported: val=4 (unsupported)");
    EXPECT_EQ(error_text([&] { read_capi_key_certificate(capi.key()); }),
              "capi_helper:423 Kes::CapiKeyParamReader::read_len(): CryptGetKeyParam() with param=26, "
              "flags=0 is not "
              "supported: val=4 (unsupported)");
}

class CapiPkoIdScannerTest : public CardTest {};

TEST_F(CapiPkoIdScannerTest, RecordsThreeObjectsForEachKeyInAscendingOrder) {
    card.add("sign");
    PkoIdList list(std::make_unique<CapiPkoIdScanner>(card_provider, nullptr), Pin());
    std::ostringstream text;
    text << list;
    std::string expected;
    for (const char* name : {"both (KEYEXCHANGE) [%, key_type=1, name=both, cluster_name=both]\n",
                             "both (SIGNATURE) [%, key_type=2, name=both, cluster_name=both]\n",
                             "sign (SIGNATURE) [%, key_type=2, name=sign, cluster_name=sign]\n"})
        for (const char* type : {"type=private_key", "type=public_key", "type=certificate"})
            expected += std::string(name).replace(std::string(name).find('%'), 1, type);
    EXPECT_EQ(text.str(), expected);
}

TEST_F(CapiPkoIdScannerTest, AProviderWithoutCertificatesEndsTheScan) {
    card.fail("certificate_size", bad_type);
    PkoIdList list;
    list.register_scanner(std::make_unique<CapiPkoIdScanner>(card_provider, nullptr));
    EXPECT_EQ(error_text([&] { list.scan(Pin()); }), "capi_helper:423 Kes::CapiKeyParamReader::read_len(): "
                                                     "CryptGetKeyParam() with param=26, flags=0 is not "
                                                     "supported: val=4 (unsupported)");
    EXPECT_TRUE(list.is_empty());
}

class CapiOsslEngineTest : public CardTest {
protected:
    void SetUp() override { engine.emplace(".\\capi.dll", card_provider, signature, ""); }
    void TearDown() override {
        engine.reset();
        CardTest::TearDown();
    }

    std::optional<CapiOsslEngine> engine;
};

TEST_F(CapiOsslEngineTest, TheKeyTypeTellsWhichOfTwoKeysIsMeant) {
    for (const unsigned int key_type : {signature, key_exchange, signature}) {
        SCOPED_TRACE(key_type);
        engine->set_key_type(key_type);
        const X509Ptr certificate = engine->read_certificate("both");
        EXPECT_EQ(der_of(certificate.get()), prepared_certificate("both", key_type));
        EXPECT_EQ(public_key_der(engine->read_public_key("both").get()),
                  public_key_of(prepared_certificate("both", key_type)));
        EXPECT_EQ(signing_problem(engine->read_private_key("both").get(), certificate.get()), "");
    }
}

TEST_F(CapiOsslEngineTest, ThePublicKeyComesFromTheCertificateToo) {
    EXPECT_EQ(public_key_der(engine->read_public_key_by_certificate("both").get()),
              public_key_of(prepared_certificate("both", signature)));
}

TEST_F(CapiOsslEngineTest, WhatIsReadFromTheProviderIsReleasedBeforeItIsHandedOut) {
    const std::size_t before = card.calls().size();
    const EvpPkeyPtr key = engine->read_public_key("both");
    const X509Ptr certificate = engine->read_certificate("both");
    EXPECT_EQ(card.unreleased(), Lines());
    EXPECT_EQ(card.calls().at(before), "acquire@both");
}

TEST_F(CapiOsslEngineTest, EachFailureOfReadingThePublicKeyIsReported) {
    const std::string no_export =
        "capi_helper:512 Kes::CapiPubKey::CapiPubKey(): CryptExportPublicKeyInfoEx() failed: ";
    const std::pair<const char*, std::string> failures[] = {
        {"acquire@both",
         "capi_helper:79 Kes::CapiInit::CapiInit(): CryptAcquireContext() with prov_name=Microsoft Base "
         "Smart Card Crypto Provider, key_container_name=both, flags=0x0 failed: "},
        {"user_key_2@both",
         "capi_helper:113 Kes::CapiInit::fetch_key(): CryptGetUserKey() with key_type=SIGNATURE failed: "},
        {"export_size@both", no_export},
        {"export@both", no_export},
    };
    for (const auto& [call, text] : failures) {
        card.fail(call, removed_card);
        EXPECT_EQ(error_text([&] { engine->read_public_key("both"); }), text + windows_error(removed_card));
        EXPECT_EQ(card.unreleased(), Lines());
        card.heal();
    }
}

TEST_F(CapiOsslEngineTest, AKeyWithoutCertificateIsReportedAndCanBeLoaded) {
    card.remove_certificate("both", signature);
    EXPECT_EQ(
        error_text([&] { engine->read_certificate("both"); }),
        "capi_helper:426 Kes::CapiKeyParamReader::read_len(): CryptGetKeyParam(param=26, flags=0) failed: " +
            windows_error(0x8010002c));
    EXPECT_EQ(public_key_der(engine->read_private_key("both").get()),
              public_key_of(prepared_certificate("both", signature)));
}

TEST_F(CapiOsslEngineTest, WhatIsStoredAsACertificateAndIsNoneIsReported) {
    for (const Bytes& content : {Bytes{'n', 'o', 'n', 'e'}, Bytes{}}) {
        card.replace_certificate("both", signature, content);
        const std::string text = error_text([&] { engine->read_certificate("both"); });
        EXPECT_EQ(text.substr(0, text.find('\n')),
                  "ossl_engine_capi:285 Kes::CapiOsslEngine::read_certificate(): error converting "
                  "certificate from DER "
                  "to X509 format: rc=0");
    }
}

TEST_F(CapiOsslEngineTest, AKeyTypeThatTheContainerHasNoKeyOfIsReported) {
    card.add("sign");
    engine->set_key_type(key_exchange);
    const std::string text =
        "capi_helper:113 Kes::CapiInit::fetch_key(): CryptGetUserKey() with key_type=KEYEXCHANGE failed: " +
        windows_error(0x8009000d);
    EXPECT_EQ(error_text([&] { engine->read_public_key("sign"); }), text);
    EXPECT_EQ(error_text([&] { engine->read_certificate("sign"); }), text);
    EXPECT_EQ(masked(error_text([&] { engine->read_private_key("sign"); })),
              "ossl_engine:79 Kes::OsslEngine::read_private_key(): ENGINE_load_private_key() failed: rc=0\n"
              "error:lib:getuserkey error:Error code= 0x8009000D\n"
              "error:engine routines:failed loading private key:");
}

TEST_F(CapiOsslEngineTest, AnotherOneIsMadeOnceTheFirstIsGone) {
    EXPECT_EQ(
        masked(error_text([] { const CapiOsslEngine other(".\\capi.dll", card_provider, signature, ""); })),
        "ossl_engine_capi:122 Kes::CapiOsslEngine::CapiOsslEngine(): ENGINE_ctrl_cmd_string(LOAD) failed: "
        "rc=0\n"
        "error:engine routines:init failed:");
    engine.reset();
    const CapiOsslEngine other(".\\capi.dll", card_provider, key_exchange, "");
    EXPECT_THAT(log.lines(), ::testing::Contains("<debug> capi engine is using key_type=KEYEXCHANGE"));
}

TEST_F(CapiOsslEngineTest, TheDebugFileTellsWhatTheEngineDoes) {
    engine.reset();
    const TempDir dir;
    CapiOsslEngine other(".\\capi.dll", card_provider, signature, dir.file("debug"));
    other.read_private_key("both");
    EXPECT_THAT(read_text(dir.file("debug")), ::testing::HasSubstr("both"));
}

} // namespace
} // namespace Kes::test
