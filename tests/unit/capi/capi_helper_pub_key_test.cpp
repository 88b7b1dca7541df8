#include "capi/capi_helper.h"
#include "support/capi_fixture.h"
#include "utils/error.h"

namespace Kes::test {
namespace {

class CapiPubKeyTest : public CapiTest {
protected:
    CapiPubKeyTest() { script().take_calls(); }

    const CapiInit opened{csp, "c1", 0};

    Bytes der() const { return CapiPubKey(opened.provider(), AT_SIGNATURE).der(); }
};

TEST_F(CapiPubKeyTest, ReturnsTheSubjectPublicKeyInfoOfTheKey) {
    EXPECT_EQ(der(), public_key_der(CapiKeys::instance().rsa.get()));
    EXPECT_EQ(script().calls(), (Lines{"CryptExportPublicKeyInfoEx(prov:c1, 2, size)",
                                       "CryptExportPublicKeyInfoEx(prov:c1, 2, read)",
                                       "CryptEncodeObjectEx(size)", "CryptEncodeObjectEx(read)"}));
}

TEST_F(CapiPubKeyTest, KeyParametersAreKept) {
    container(0).keys[AT_SIGNATURE].public_key = CapiKeys::instance().ec.get();
    EXPECT_EQ(der(), public_key_der(CapiKeys::instance().ec.get()));
}

TEST_F(CapiPubKeyTest, FailedCallIsNamedAndNoFurtherCallFollows) {
    const std::string errors[] = {
        "capi_helper:512 Kes::CapiPubKey::CapiPubKey(): CryptExportPublicKeyInfoEx() failed: ",
        "capi_helper:520 Kes::CapiPubKey::CapiPubKey(): CryptExportPublicKeyInfoEx() failed: ",
        "capi_helper:528 Kes::CapiPubKey::CapiPubKey(): CryptEncodeObjectEx() failed: ",
        "capi_helper:538 Kes::CapiPubKey::CapiPubKey(): CryptEncodeObjectEx() failed: "};
    for (std::size_t step = 1; step <= std::size(errors); ++step) {
        for (const DWORD code : all_codes) {
            script().clear_failures();
            const std::size_t n = script().steps() + step;
            script().fail_step(n, win_failure(code));
            EXPECT_EQ(error_text([&] { der(); }), errors[step - 1] + win_code(code));
            EXPECT_EQ(script().steps(), n);
        }
    }
}

TEST_F(CapiPubKeyTest, SizesThatGrowBeforeTheReadThrow) {
    for (const DWORD size : {0U, 1U, 100U}) {
        capi().odd_answers = {{"CryptExportPublicKeyInfoEx", {.size = size}}};
        EXPECT_EQ(error_text([&] { der(); }), "capi_helper:520 Kes::CapiPubKey::CapiPubKey(): "
                                              "CryptExportPublicKeyInfoEx() failed: val=234 [0xea] (unknown "
                                              "winerror)");
    }
    capi().odd_answers = {{"CryptEncodeObjectEx", {.size = 10}}};
    EXPECT_EQ(error_text([&] { der(); }), "capi_helper:538 Kes::CapiPubKey::CapiPubKey(): "
                                          "CryptEncodeObjectEx() failed: val=234 [0xea] (unknown winerror)");
}

TEST_F(CapiPubKeyTest, SizesThatShrinkBeforeTheReadAreAccepted) {
    capi().odd_answers = {{"CryptExportPublicKeyInfoEx", {.size = 5000}},
                          {"CryptEncodeObjectEx", {.size = 5000}}};
    EXPECT_EQ(der(), public_key_der(CapiKeys::instance().rsa.get()));
}

TEST_F(CapiPubKeyTest, EncodingOfLengthZeroIsEmpty) {
    capi().odd_answers = {{"CryptEncodeObjectEx", {.size = 0}}};
    EXPECT_EQ(der(), Bytes());
}

TEST_F(CapiPubKeyTest, EncodingThatReportsMoreThanTheBufferHoldsIsLimitedToTheBuffer) {
    capi().odd_answers = {{"CryptEncodeObjectEx", {.reported = 4000000000U}}};
    EXPECT_EQ(der(), public_key_der(CapiKeys::instance().rsa.get()));
}

TEST_F(CapiPubKeyTest, ContainerWithoutTheKeyThrows) {
    container(0).keys.erase(AT_SIGNATURE);
    EXPECT_EQ(error_text([&] { der(); }),
              "capi_helper:512 Kes::CapiPubKey::CapiPubKey(): CryptExportPublicKeyInfoEx() failed: " +
                  win_code(static_cast<DWORD>(NTE_NO_KEY)));
}

} // namespace
} // namespace Kes::test
