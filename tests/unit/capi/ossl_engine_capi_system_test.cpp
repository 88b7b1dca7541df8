// Tests of the engine with the functions of Windows itself and the test card.
#include "capi/ossl_engine_capi.h"

#include <optional>
#include <utility>

#include "support/csp_card_fixture.h"

namespace Kes::test {
namespace {

constexpr unsigned long removed_card = 0x80100069; // SCARD_W_REMOVED_CARD

class CapiOsslEngineTest : public CardTest {
protected:
    void SetUp() override { engine.emplace(".\\capi.dll", card_provider, signature, ""); }
    void TearDown() override {
        engine.reset();
        CardTest::TearDown();
    }

    std::optional<CapiOsslEngine> engine;
};

TEST_F(CapiOsslEngineTest, KeyTypeSelectsOneOfTwoKeys) {
    for (const unsigned int key_type : {signature, key_exchange, signature}) {
        SCOPED_TRACE(key_type);
        engine->set_key_type(key_type);
        const X509Ptr certificate = engine->read_certificate("both");
        EXPECT_EQ(der_of(certificate.get()), prepared_certificate("both", key_type));
        EXPECT_EQ(public_key_der(engine->read_public_key("both").get()),
                  public_key_of(prepared_certificate("both", key_type)));
        EXPECT_EQ(
            signing_problem(engine->read_private_key("both").get(), certificate.get(), pkcs1_with_any_sha2),
            "");
    }
}

TEST_F(CapiOsslEngineTest, ReadsThePublicKeyFromTheCertificate) {
    EXPECT_EQ(public_key_der(engine->read_public_key_by_certificate("both").get()),
              public_key_of(prepared_certificate("both", signature)));
}

TEST_F(CapiOsslEngineTest, ProviderHandlesAreReleasedBeforeAReadReturns) {
    const std::size_t before = card.calls().size();
    const EvpPkeyPtr key = engine->read_public_key("both");
    const X509Ptr certificate = engine->read_certificate("both");
    EXPECT_EQ(card.unreleased(), Lines());
    EXPECT_EQ(card.calls().at(before), "acquire@both");
}

TEST_F(CapiOsslEngineTest, EachFailureToReadThePublicKeyIsReported) {
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
        card.clear_failures();
    }
}

TEST_F(CapiOsslEngineTest, MissingCertificateIsReportedAndItsKeyCanStillBeLoaded) {
    card.remove_certificate("both", signature);
    EXPECT_EQ(
        error_text([&] { engine->read_certificate("both"); }),
        "capi_helper:426 Kes::CapiKeyParamReader::read_len(): CryptGetKeyParam(param=26, flags=0) failed: " +
            windows_error(0x8010002c));
    EXPECT_EQ(public_key_der(engine->read_private_key("both").get()),
              public_key_of(prepared_certificate("both", signature)));
}

TEST_F(CapiOsslEngineTest, InvalidCertificateIsReported) {
    for (const Bytes& content : {Bytes{'n', 'o', 'n', 'e'}, Bytes{}}) {
        card.replace_certificate("both", signature, content);
        const std::string text = error_text([&] { engine->read_certificate("both"); });
        EXPECT_EQ(text.substr(0, text.find('\n')),
                  "ossl_engine_capi:285 Kes::CapiOsslEngine::read_certificate(): error converting "
                  "certificate from DER "
                  "to X509 format: rc=0");
    }
}

TEST_F(CapiOsslEngineTest, KeyTypeMissingFromTheContainerIsReported) {
    card.add("sign");
    engine->set_key_type(key_exchange);
    const std::string text =
        "capi_helper:113 Kes::CapiInit::fetch_key(): CryptGetUserKey() with key_type=KEYEXCHANGE failed: " +
        windows_error(0x8009000d);
    EXPECT_EQ(error_text([&] { engine->read_public_key("sign"); }), text);
    EXPECT_EQ(error_text([&] { engine->read_certificate("sign"); }), text);
    EXPECT_EQ(masked_errors(error_text([&] { engine->read_private_key("sign"); })),
              "ossl_engine:79 Kes::OsslEngine::read_private_key(): ENGINE_load_private_key() failed: rc=0\n"
              "error:lib:getuserkey error:Error code= 0x8009000D\n"
              "error:engine routines:failed loading private key:");
}

TEST_F(CapiOsslEngineTest, SecondEngineCanBeLoadedOnlyAfterTheFirstIsDestroyed) {
    EXPECT_EQ(
        masked_errors(
            error_text([] { const CapiOsslEngine other(".\\capi.dll", card_provider, signature, ""); })),
        "ossl_engine_capi:122 Kes::CapiOsslEngine::CapiOsslEngine(): ENGINE_ctrl_cmd_string(LOAD) failed: "
        "rc=0\n"
        "error:engine routines:init failed:\n"
        "error:engine routines:operation fail:the engine cannot be loaded again: the client still uses a key "
        "that was created during an earlier load");
    engine.reset();
    const CapiOsslEngine other(".\\capi.dll", card_provider, key_exchange, "");
    EXPECT_THAT(log.lines(), ::testing::Contains("<debug> capi engine is using key_type=KEYEXCHANGE"));
}

TEST_F(CapiOsslEngineTest, DebugFileContainsTheOutputOfTheEngine) {
    engine.reset();
    const TempDir dir;
    CapiOsslEngine other(".\\capi.dll", card_provider, signature, dir.file("debug"));
    other.read_private_key("both");
    EXPECT_THAT(read_text(dir.file("debug")), ::testing::HasSubstr("both"));
}

} // namespace
} // namespace Kes::test
