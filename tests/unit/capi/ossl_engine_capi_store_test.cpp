#include "capi/ossl_engine_capi_store.h"

#include "capi_engine_calls.h"
#include "support/capi_fixture.h"
#include "support/engine_steps.h"
#include "utils/error.h"

namespace {

/// Makes X509_dup() fail, which otherwise happens only when memory runs out.
bool is_copy_failing = false;

} // namespace

extern "C" {
X509* __real_X509_dup(const X509* cert);
X509* __wrap_X509_dup(const X509* cert) { return is_copy_failing ? nullptr : __real_X509_dup(cert); }
}

namespace Kes::test {
namespace {

class CapiStoreOsslEngineTest : public CapiTest {
protected:
    static std::unique_ptr<CapiStoreOsslEngine> load(const std::string& debug_file = "",
                                                     const char* store_name = "MY") {
        return std::make_unique<CapiStoreOsslEngine>("./capi.so", store_name, debug_file);
    }

    LogCapture log;
};

const Lines choice_calls{"ENGINE_ctrl_cmd_string(engine1, store_name, MY)",
                         "ENGINE_ctrl_cmd_string(engine1, lookup_method, 1)",
                         "ENGINE_set_default(engine1, 65535)", "ENGINE_get_id(engine1)"};

TEST_F(CapiStoreOsslEngineTest, LoadsInOrderAndLogsTheId) {
    const auto loaded = load();
    EXPECT_EQ(script().calls(), load_calls + choice_calls);
    EXPECT_EQ(log.lines(), Lines{"<info> loaded engine: id=pkcs11"}); // the id of the test double
}

TEST_F(CapiStoreOsslEngineTest, DebugFileIsSetAfterTheDebugLevel) {
    const auto loaded = load("debug.txt");
    EXPECT_EQ(script().calls(),
              load_calls + Lines{"ENGINE_ctrl_cmd_string(engine1, debug_file, debug.txt)"} + choice_calls);
}

TEST_F(CapiStoreOsslEngineTest, FailedStepIsNamedAndEarlierStepsAreUndoneInOrder) {
    const std::string constructor = " Kes::CapiStoreOsslEngine::CapiStoreOsslEngine(): ";
    const std::vector<EngineStep> steps{
        {2, "ossl_engine_capi_store:114" + constructor + "ENGINE_ctrl_cmd_string(SO_PATH) failed", freed},
        {3, "ossl_engine_capi_store:121" + constructor + "ENGINE_ctrl_cmd_string(LIST_ADD) failed", freed},
        {4, "ossl_engine_capi_store:127" + constructor + "ENGINE_ctrl_cmd_string(LOAD) failed", freed},
        {5, "ossl_engine_capi_store:133" + constructor + "ENGINE_init() failed", removed},
        {6, "ossl_engine_capi_store:139" + constructor + "ENGINE_ctrl_cmd_string(debug_level) failed",
         finished},
        {7, "ossl_engine_capi_store:150" + constructor + "ENGINE_ctrl_cmd_string(debug_file) failed",
         finished},
        {8, "ossl_engine_capi_store:160" + constructor + "ENGINE_ctrl_cmd_string(store_name) failed",
         finished},
        {9, "ossl_engine_capi_store:169" + constructor + "ENGINE_ctrl_cmd_string(lookup_method) failed",
         finished},
        {10, "ossl_engine_capi_store:178" + constructor + "ENGINE_set_default() failed", finished},
    };
    expect_each_failing_step_undone(steps, [] { load("debug.txt"); });
    EXPECT_EQ(log.lines(), Lines());
}

TEST_F(CapiStoreOsslEngineTest, LoadFailsWithTheReasonWhileAnEarlierEngineIsInUse) {
    const auto loaded = load();
    engine().refuses_loaded_library = true;
    EXPECT_EQ(masked_errors(error_text([] { load(); })),
              "ossl_engine_capi_store:127 Kes::CapiStoreOsslEngine::CapiStoreOsslEngine(): "
              "ENGINE_ctrl_cmd_string(LOAD) failed: rc=0\n" +
                  std::string(refused_lines));
}

TEST_F(CapiStoreOsslEngineTest, EngineOfLibp11IsNamed) {
    engine().loaded_id = "pkcs11";
    engine().unknown_command = "debug_level";
    EXPECT_EQ(masked_errors(error_text([] { load(); })),
              "ossl_engine_capi_store:139 Kes::CapiStoreOsslEngine::CapiStoreOsslEngine(): "
              "ENGINE_ctrl_cmd_string(debug_level) failed: rc=0\n" +
                  std::string(wrong_engine_lines));
}

TEST_F(CapiStoreOsslEngineTest, LoadSucceedsAfterOtherExceptionsInAnyStep) {
    expect_load_to_succeed_after_other_exceptions(9, [](std::size_t) { load(); });
}

TEST_F(CapiStoreOsslEngineTest, ErrorQueueIsReadBeforeTheCleanUp) {
    expect_error_queue_taken_before_clean_up([] { load(); });
}

TEST_F(CapiStoreOsslEngineTest, UnloadsInOrderAndFreesLast) {
    auto loaded = load();
    script().take_calls();
    loaded.reset();
    EXPECT_EQ(script().calls(), engine_unload_calls());
    EXPECT_EQ(log.lines().back(), "<info> unloading engine: id=pkcs11");
}

TEST_F(CapiStoreOsslEngineTest, KeyTypesAndPinsAreIgnored) {
    const auto loaded = load();
    script().take_calls();
    loaded->set_key_type(AT_KEYEXCHANGE);
    loaded->set_pin(Pin("1234"));
    EXPECT_EQ(script().calls(), Lines());
}

TEST_F(CapiStoreOsslEngineTest, PrivateKeyIsReadFromTheEngine) {
    const auto loaded = load();
    const EvpPkeyPtr key = loaded->read_private_key("Signer");
    EXPECT_EQ(::EVP_PKEY_eq(key.get(), data().key.get()), 1);
    EXPECT_EQ(script().calls().back(), "ENGINE_load_private_key(engine1, Signer)");
}

TEST_F(CapiStoreOsslEngineTest, CertificateIsACopyOfTheFirstWhoseSubjectContainsTheText) {
    const auto loaded = load();
    script().take_calls();
    const X509Ptr cert = loaded->read_certificate("test makers");
    EXPECT_EQ(der_of(cert.get()), cert_der("sign"));
    EXPECT_EQ(script().calls(),
              (Lines{"CertOpenStore(MY)", "CertFindCertificateInStore(store:MY, test makers)",
                     "CertFreeCertificateContext(cert:MY/0)", "CertCloseStore(store:MY)"}));
    EXPECT_EQ(without_addresses(log.lines()),
              (Lines{"<info> loaded engine: id=pkcs11", "<trace> created CertStore [MY]",
                     "<trace> created WinCertStoreImp [MY]", "<trace> created WinCert [ctx=ADDRESS]",
                     "<info> read certificate: test makers", "<trace> created OsslCert [x509=ADDRESS]",
                     "<trace> destroyed OsslCert [x509=ADDRESS]", "<trace> destroyed WinCert [ctx=ADDRESS]",
                     "<trace> destroyed WinCertStoreImp [MY]", "<trace> destroyed CertStore [MY]"}));
}

TEST_F(CapiStoreOsslEngineTest, PublicKeyIsReadFromTheCertificate) {
    const auto loaded = load();
    const EvpPkeyPtr key = loaded->read_public_key("Exchanger");
    EXPECT_EQ(::EVP_PKEY_eq(key.get(), CapiKeys::instance().rsa.get()), 1);
    EXPECT_EQ(log.lines().back(), "<info> read public key from certificate: Exchanger");
}

TEST_F(CapiStoreOsslEngineTest, UnknownSubjectThrowsForCertificatesAndForPublicKeys) {
    const auto loaded = load();
    const std::string error =
        "ossl_engine_capi_store:236 Kes::CapiStoreOsslEngine::read_certificate(): error "
        "finding certificate with subject name='Nobody': rc=0";
    EXPECT_EQ(error_text([&] { loaded->read_certificate("Nobody"); }), error);
    EXPECT_EQ(error_text([&] { loaded->read_public_key("Nobody"); }), error);
    EXPECT_EQ(capi().unreleased_handles(), 0U);
}

TEST_F(CapiStoreOsslEngineTest, EachReadOfAMissingStoreThrows) {
    const auto loaded = load("", "NONE");
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(error_text([&] { loaded->read_certificate("Signer"); }),
                  "certstore_win:61 Kes::WinCertStoreImp::WinCertStoreImp(): CertOpenStore() with name=NONE "
                  "failed: val=2 [0x2] (unknown winerror)");
}

TEST_F(CapiStoreOsslEngineTest, CertificateThatOpensslCannotDecodeThrows) {
    store().certs = {Bytes{0x30, 0x01}};
    const auto loaded = load();
    const std::string error = error_text([&] { loaded->read_certificate(""); });
    EXPECT_EQ(error.substr(0, error.find('\n')),
              "cert_ossl:55 Kes::OsslCert::OsslCert(): error converting certificate from DER to X509 format: "
              "rc=0");
    EXPECT_EQ(capi().unreleased_handles(), 0U);
}

TEST_F(CapiStoreOsslEngineTest, CertificateThatCannotBeCopiedThrowsAndAllHandlesAreReleased) {
    const auto loaded = load();
    is_copy_failing = true;
    const std::string error = error_text([&] { loaded->read_certificate("Signer"); });
    is_copy_failing = false;
    EXPECT_EQ(error, "ossl_engine_capi_store:245 Kes::CapiStoreOsslEngine::read_certificate(): error "
                     "duplicating x509 certificate: rc=0");
    EXPECT_EQ(script().calls().back(), "CertCloseStore(store:MY)");
    EXPECT_EQ(capi().unreleased_handles(), 0U);
}

TEST_F(CapiStoreOsslEngineTest, EachFailedCallIsReportedOrLoggedAndAllHandlesAreReleased) {
    const auto loaded = load();
    for (const DWORD code : all_codes) {
        script().clear_failures();
        script().fail_step(script().steps() + 1, win_failure(code));
        EXPECT_EQ(error_text([&] { loaded->read_certificate("Signer"); }),
                  "certstore_win:61 Kes::WinCertStoreImp::WinCertStoreImp(): CertOpenStore() with name=MY "
                  "failed: " +
                      win_code(code));
        script().fail_step(script().steps() + 2, win_failure(code));
        EXPECT_EQ(error_text([&] { loaded->read_certificate("Signer"); }),
                  "ossl_engine_capi_store:236 Kes::CapiStoreOsslEngine::read_certificate(): error finding "
                  "certificate with subject name='Signer': rc=0");
        EXPECT_EQ(script().calls().back(), "CertCloseStore(store:MY)");
        script().fail_step(script().steps() + 3, win_failure(code));
        EXPECT_NE(loaded->read_certificate("Signer"), nullptr);
        EXPECT_THAT(log.lines(), testing::Contains("<error> CertCloseStore() failed: " + win_code(code)));
        EXPECT_EQ(capi().unreleased_handles(), 0U);
    }
}

TEST_F(CapiStoreOsslEngineTest, CopiesTheStoreName) {
    std::string name = "MY";
    const auto loaded = load("", name.c_str());
    name = "??";
    EXPECT_NE(loaded->read_certificate("Signer"), nullptr);
}

} // namespace
} // namespace Kes::test
