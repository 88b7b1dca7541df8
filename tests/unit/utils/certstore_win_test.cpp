#include "utils/certstore_win.h"

#include "support/capi_fixture.h"
#include "utils/error.h"

namespace Kes::test {
namespace {

class WinCertStoreTest : public CapiTest {
protected:
    /// The subjects of all certificates. Each certificate is destroyed after the next one is read.
    static Lines subjects_of(const WinCertStore& opened) {
        Lines subjects;
        for (auto cert = opened.first(); cert; cert = opened.next(*cert))
            subjects.push_back(cert->get_subject_name_simple());
        return subjects;
    }

    LogCapture log;
};

const Lines lifetime_lines{"<trace> created CertStore [MY]", "<trace> created WinCertStoreImp [MY]",
                           "<trace> destroyed WinCertStoreImp [MY]", "<trace> destroyed CertStore [MY]"};

TEST_F(WinCertStoreTest, OpensTheNamedStoreAndClosesItOnDestruction) {
    WinCertStore::open("MY");
    EXPECT_EQ(script().calls(), (Lines{"CertOpenStore(MY)", "CertCloseStore(store:MY)"}));
    EXPECT_EQ(log.lines(), lifetime_lines);
}

TEST_F(WinCertStoreTest, MissingStoreThrowsAnErrorWithItsName) {
    EXPECT_EQ(error_text([] { WinCertStore::open("NONE"); }),
              "certstore_win:61 Kes::WinCertStoreImp::WinCertStoreImp(): CertOpenStore() with name=NONE "
              "failed: val=2 [0x2] (unknown winerror)");
    EXPECT_EQ(script().calls(), Lines{"CertOpenStore(NONE)"});
    EXPECT_EQ(log.lines(), (Lines{"<trace> created CertStore [NONE]", "<trace> destroyed CertStore [NONE]"}));
}

TEST_F(WinCertStoreTest, EachReasonForAFailedOpenIsReported) {
    for (const DWORD code : all_codes) {
        capi().errors["CertOpenStore MY"] = code;
        EXPECT_EQ(error_text([] { WinCertStore::open("MY"); }),
                  "certstore_win:61 Kes::WinCertStoreImp::WinCertStoreImp(): CertOpenStore() with name=MY "
                  "failed: " +
                      win_code(code));
        EXPECT_EQ(error_text([] { const WinCertStoreImp imp("MY"); }),
                  "certstore_win:61 Kes::WinCertStoreImp::WinCertStoreImp(): CertOpenStore() with name=MY "
                  "failed: " +
                      win_code(code));
    }
}

TEST_F(WinCertStoreTest, OpenThrowsTheCommonErrorTypeAndTheImplementationAWinError) {
    EXPECT_THROW(WinCertStoreImp("NONE"), WinError);
    try {
        WinCertStore::open("NONE");
        FAIL() << "no exception";
    } catch (const ErrorBase& error) {
        EXPECT_EQ(typeid(error), typeid(ErrorBase));
    }
}

TEST_F(WinCertStoreTest, FailedCloseIsOnlyLogged) {
    for (const DWORD code : all_codes) {
        const LogCapture own_log;
        script().fail_function("CertCloseStore", win_failure(code));
        WinCertStore::open("MY");
        EXPECT_EQ(own_log.lines(), (Lines{lifetime_lines[0], lifetime_lines[1],
                                          "<error> CertCloseStore() failed: " + win_code(code),
                                          lifetime_lines[2], lifetime_lines[3]}));
    }
}

TEST_F(WinCertStoreTest, NullImplementationIsABadArgument) {
    const auto opened = WinCertStore::open("MY");
    EXPECT_EQ(
        error_text([&] { opened->set_imp(nullptr); }),
        "certstore:151 Kes::CertStore<class Kes::WinCert,class Kes::WinCertStoreImp>::set_imp(): imp is "
        "a null pointer: val=3 (bad_argument)");
    EXPECT_NE(opened->first(), nullptr);
}

TEST_F(WinCertStoreTest, NewImplementationClosesTheEarlierStore) {
    capi().stores.push_back({"ROOT", {}});
    const auto opened = WinCertStore::open("MY");
    opened->set_imp(std::make_unique<WinCertStoreImp>("ROOT"));
    EXPECT_EQ(script().calls(),
              (Lines{"CertOpenStore(MY)", "CertOpenStore(ROOT)", "CertCloseStore(store:MY)"}));
    EXPECT_EQ(opened->first(), nullptr);
}

TEST_F(WinCertStoreTest, EmptyStoreHasNoFirstCertificate) {
    store().certs.clear();
    EXPECT_EQ(WinCertStore::open("MY")->first(), nullptr);
}

TEST_F(WinCertStoreTest, EnumerationVisitsAndFreesEachCertificateOnce) {
    const auto opened = WinCertStore::open("MY");
    EXPECT_EQ(subjects_of(*opened),
              (Lines{"AT, Test Makers, Signer", "AT, Test Makers, Exchanger", "No Usage"}));
    EXPECT_EQ(capi().unreleased_handles(), 1U);
}

TEST_F(WinCertStoreTest, EarlierCertificateStaysValidUntilItsOwnerDestroysIt) {
    const auto opened = WinCertStore::open("MY");
    {
        const auto first = opened->first();
        const auto second = opened->next(*first);
        const auto third = opened->next(*second);
        EXPECT_EQ(opened->next(*third), nullptr);
        EXPECT_EQ(first->get_subject_name_simple(), "AT, Test Makers, Signer");
        EXPECT_EQ(opened->next(*first)->get_der_data(), second->get_der_data());
    }
    EXPECT_EQ(capi().unreleased_handles(), 1U);
}

TEST_F(WinCertStoreTest, NextPassesADuplicateSoThatTheCallerFreesTheEarlierCertificate) {
    store().certs.resize(1);
    const auto opened = WinCertStore::open("MY");
    script().take_calls();
    for (auto cert = opened->first(); cert; cert = opened->next(*cert)) {
    }
    EXPECT_EQ(
        script().calls(),
        (Lines{"CertEnumCertificatesInStore(store:MY, null)", "CertDuplicateCertificateContext(cert:MY/0)",
               "CertEnumCertificatesInStore(store:MY, cert:MY/0)", "CertFreeCertificateContext(cert:MY/0)"}));
}

TEST_F(WinCertStoreTest, EnumerationContinuesWhileEarlierCertificatesAreDeletedFromTheStore) {
    store().certs = {numbered_cert_der(0), numbered_cert_der(1), numbered_cert_der(2), numbered_cert_der(3)};
    const auto opened = WinCertStore::open("MY");
    Lines subjects;
    for (auto cert = opened->first(); cert; cert = opened->next(*cert)) {
        store().deleted.push_back(subjects.size()); // the current certificate
        subjects.push_back(cert->get_subject_name_simple());
    }
    EXPECT_EQ(subjects, (Lines{"Number 0000", "Number 0001", "Number 0002", "Number 0003"}));
    EXPECT_EQ(opened->first(), nullptr);
}

TEST_F(WinCertStoreTest, ThousandCertificatesAreEnumerated) {
    store().certs.clear();
    Lines expected;
    for (int i = 0; i < 1000; ++i) {
        store().certs.push_back(numbered_cert_der(i));
        expected.push_back("Number " + std::to_string(10000 + i).substr(1));
    }
    EXPECT_EQ(subjects_of(*WinCertStore::open("MY")), expected);
}

TEST_F(WinCertStoreTest, FailedEnumerationReturnsNull) {
    for (const DWORD code : all_codes) {
        for (const std::size_t step : {1U, 2U}) {
            const auto opened = WinCertStore::open("MY");
            script().clear_failures();
            const auto enumerate = [&] {
                return step == 1 ? opened->first() : opened->next(*opened->first());
            };
            script().fail_step(script().steps() + step, win_failure(code));
            EXPECT_EQ(enumerate(), nullptr);
            EXPECT_EQ(capi().unreleased_handles(), 1U);
        }
    }
}

TEST_F(WinCertStoreTest, FindsTheFirstCertificateWhoseSubjectContainsTheText) {
    const auto opened = WinCertStore::open("MY");
    const struct {
        const char* text;
        const char* found;
    } rows[] = {{"Signer", "sign"},
                {"test MAKERS", "sign"}, // the first of two, regardless of case
                {"Exchanger", "exchange"},
                {"Makers, Exch", "exchange"},
                {"", "sign"}};
    for (const auto& row : rows) {
        const auto cert = opened->find_by_subject(row.text);
        ASSERT_NE(cert, nullptr) << row.text;
        EXPECT_EQ(cert->get_der_data(), cert_der(row.found));
        EXPECT_THAT(script().calls(),
                    testing::Contains(std::string("CertFindCertificateInStore(store:MY, ") + row.text + ")"));
    }
    EXPECT_EQ(capi().unreleased_handles(), 1U);
}

TEST_F(WinCertStoreTest, SearchThatFindsNothingOrFailsReturnsNull) {
    const auto opened = WinCertStore::open("MY");
    EXPECT_EQ(opened->find_by_subject("Nobody"), nullptr);
    for (const DWORD code : all_codes) {
        script().fail_function("CertFindCertificateInStore", win_failure(code));
        EXPECT_EQ(opened->find_by_subject("Signer"), nullptr);
    }
    EXPECT_EQ(capi().unreleased_handles(), 1U);
}

} // namespace
} // namespace Kes::test
