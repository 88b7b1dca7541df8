#include "scripted_capi.h"

#include "support/capi_fixture.h"

namespace Kes::test {
namespace {

/// The violations that other tests rely on the test double to detect.
class ScriptedCapiTest : public CapiTest {
protected:
    ScriptedCapiTest() {
        ::CryptAcquireContextA(&opened, "c1", csp, PROV_RSA_FULL, 0);
        ::CryptGetUserKey(opened, AT_SIGNATURE, &key);
        EXPECT_NE(opened, 0U);
        EXPECT_NE(key, 0U);
    }

    void expect_violation(const std::string& text) {
        EXPECT_EQ(script().violations(), Lines{text});
        script().reset();
    }

    void release() {
        ::CryptDestroyKey(key);
        ::CryptReleaseContext(opened, 0);
    }

    HCRYPTPROV opened = 0;
    HCRYPTKEY key = 0;
};

TEST_F(ScriptedCapiTest, UnreleasedHandlesAreCounted) {
    EXPECT_EQ(capi().unreleased_handles(), 2U);
    release();
    EXPECT_EQ(capi().unreleased_handles(), 0U);
}

TEST_F(ScriptedCapiTest, ReleasingProviderBeforeItsKeyIsViolation) {
    ::CryptReleaseContext(opened, 0);
    expect_violation("CryptReleaseContext: before its key");
    ::CryptDestroyKey(key);
}

TEST_F(ScriptedCapiTest, ReleasingHandleTwiceIsViolation) {
    release();
    ::CryptDestroyKey(key);
    expect_violation("CryptDestroyKey: no such handle");
    ::CryptReleaseContext(opened, 0);
    expect_violation("CryptReleaseContext: no such handle");
}

TEST_F(ScriptedCapiTest, UsingReleasedHandleIsViolation) {
    release();
    DWORD length = 0;
    EXPECT_EQ(::CryptGetKeyParam(key, KP_CERTIFICATE, nullptr, &length, 0), FALSE);
    expect_violation("CryptGetKeyParam: no such handle");
    EXPECT_EQ(::CryptGetProvParam(opened, PP_NAME, nullptr, &length, 0), FALSE);
    expect_violation("CryptGetProvParam: no such handle");
}

TEST_F(ScriptedCapiTest, OverwritingKeyHandleIsViolation) {
    const HCRYPTKEY first = key;
    ::CryptGetUserKey(opened, AT_KEYEXCHANGE, &key);
    expect_violation("CryptGetUserKey: in the place of a key that was not destroyed");
    ::CryptDestroyKey(first);
    release();
}

TEST_F(ScriptedCapiTest, ReadingLastErrorAfterSuccessfulCallIsViolation) {
    DWORD length = 0;
    EXPECT_EQ(::CryptGetProvParam(opened, 99, nullptr, &length, 0), FALSE);
    EXPECT_EQ(::GetLastError(), bad_type);
    release();
    EXPECT_NE(::GetLastError(), bad_type);
    expect_violation("GetLastError: the last call has set none");
}

TEST_F(ScriptedCapiTest, ClosingStoreBeforeItsCertificatesOrFreeingCertificateTwiceIsViolation) {
    release();
    HCERTSTORE opened_store = ::CertOpenStore(CERT_STORE_PROV_SYSTEM_A, 0, 0, 0x14000, "MY");
    const CERT_CONTEXT* cert = ::CertEnumCertificatesInStore(opened_store, nullptr);
    ::CertDuplicateCertificateContext(cert);
    ::CertCloseStore(opened_store, 0);
    expect_violation("CertCloseStore: before its certificates");
    ::CertFreeCertificateContext(cert);
    EXPECT_EQ(capi().unreleased_handles(), 1U);
    ::CertFreeCertificateContext(cert);
    EXPECT_EQ(capi().unreleased_handles(), 0U);
    ::CertFreeCertificateContext(cert);
    EXPECT_THAT(script().violations(), testing::Each("CertFreeCertificateContext: no such handle"));
    EXPECT_FALSE(script().violations().empty());
    script().reset();
}

} // namespace
} // namespace Kes::test
