// Certificates and stores of Windows, and the classes of the capi_store road on them.
#include <openssl/x509.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <set>
#include <sstream>

#include "capi/ossl_engine_capi_store.h"
#include "capi/pko_id_scanner_capi_store.h"
#include "support/csp_card_fixture.h"
#include "utils/certstore_win.h"
#include "utils/error.h"

namespace Kes::test {
namespace {

/// "CN=Number 0000" and a serial number, both with that number in place of the one that the build made.
Bytes numbered_certificate(int number) {
    static const Bytes original = prepared_certificate("number");
    const std::string before = "Number 0000";
    std::string after = std::to_string(number);
    after = "Number " + std::string(4 - after.size(), '0') + after;
    Bytes der = original;
    std::copy(after.begin(), after.end(), std::search(der.begin(), der.end(), before.begin(), before.end()));
    return der;
}

/// A text as Windows' functions with an "A" at the end give it: the user's code page may lack some letters.
std::string in_code_page(const std::wstring& text) {
    std::string narrow(text.size() * 4, '\0');
    narrow.resize(static_cast<std::size_t>(
        ::WideCharToMultiByte(CP_ACP, 0, text.data(), static_cast<int>(text.size()), narrow.data(),
                              static_cast<int>(narrow.size()), nullptr, nullptr)));
    return narrow;
}

struct Name {
    const char* certificate;
    std::string full;
    std::string simple;
};

void PrintTo(const Name& name, std::ostream* out) { *out << name.certificate; }

class EachNameTest : public ::testing::TestWithParam<Name> {};

const std::wstring maker = L"Gr\u00fc\u00dfe";
const std::wstring person = L"J\u00f6rn Wei\u00dfer";
INSTANTIATE_TEST_SUITE_P(
    Names, EachNameTest,
    ::testing::Values(
        Name{"plain", "CN=Paul Plain", "Paul Plain"}, Name{"empty", "", ""},
        Name{"several", "C=AT, O=Test Makers, OU=First, OU=Second, CN=Several Names",
             "AT, Test Makers, First, Second, Several Names"},
        Name{"multi_valued", "O=Test Makers, OU=Unit + CN=Multi Valued", "Test Makers, Unit + Multi Valued"},
        Name{"quotes", R"(O="Makers, Sons + Co", CN="The ""Great"" Gerda")",
             R"("Makers, Sons + Co", "The ""Great"" Gerda")"},
        Name{"utf8", in_code_page(L"O=" + maker + L", CN=" + person), in_code_page(maker + L", " + person)},
        Name{"bmp", in_code_page(L"O=" + maker + L", CN=" + person), in_code_page(maker + L", " + person)}));

TEST_P(EachNameTest, IsWrittenInFullAndInShort) {
    const Bytes der = prepared_certificate(GetParam().certificate);
    const WinCert cert(
        ::CertCreateCertificateContext(X509_ASN_ENCODING, der.data(), static_cast<DWORD>(der.size())), true);
    EXPECT_EQ(cert.get_subject_name(), GetParam().full);
    EXPECT_EQ(cert.get_subject_name_simple(), GetParam().simple);
    EXPECT_EQ(cert.get_issuer_name(), "CN=Test Card CA");
    EXPECT_EQ(cert.get_issuer_name_simple(), "Test Card CA");
    EXPECT_EQ(cert.to_string(), "subject='" + GetParam().full + "'; issuer='CN=Test Card CA'");
    EXPECT_EQ(cert.get_der_data(), der);
}

TEST_P(EachNameTest, FindsItsCertificateInAStore) {
    TempStore system_store;
    system_store.add({prepared_certificate("number"), prepared_certificate(GetParam().certificate)});
    const auto store = WinCertStore::open(system_store.name());
    const auto found = store->find_by_subject(GetParam().simple.c_str());
    ASSERT_NE(found, nullptr);
    // Every name has an empty text in it, but for an empty name: the other certificate is found then.
    const std::string expected = GetParam().simple.empty() ? "number" : GetParam().certificate;
    EXPECT_EQ(found->get_der_data(), prepared_certificate(expected));
}

TEST(WinCertTest, TheFileHoldsTheCertificateByteForByte) {
    const TempDir dir;
    const Bytes der = prepared_certificate("plain");
    const WinCert cert(
        ::CertCreateCertificateContext(X509_ASN_ENCODING, der.data(), static_cast<DWORD>(der.size())), true);
    cert.write_der_file(dir.file("cert.der"));
    EXPECT_EQ(read_file(dir.file("cert.der")), std::string(der.begin(), der.end()));
}

class WinCertStoreTest : public ::testing::Test {
protected:
    /// The certificates in the order of the store.
    static std::vector<Bytes> walk(const WinCertStore& store) {
        std::vector<Bytes> certificates;
        for (auto cert = store.first(); cert; cert = store.next(*cert)) // which ends the one before
            certificates.push_back(cert->get_der_data());
        return certificates;
    }

    TempStore system_store;
};

TEST_F(WinCertStoreTest, AStoreThatDoesNotExistIsReportedByName) {
    system_store.remove();
    EXPECT_EQ(error_text([&] { WinCertStore::open(system_store.name()); }),
              "certstore_win:61 Kes::WinCertStoreImp::WinCertStoreImp(): CertOpenStore() with name=" +
                  system_store.name() + " failed: " + windows_error(2));
}

TEST_F(WinCertStoreTest, LogsEachObjectThatBeginsAndEnds) {
    const LogCapture log;
    WinCertStore::open(system_store.name());
    const std::string name = "[" + system_store.name() + "]";
    EXPECT_EQ(log.lines(),
              (Lines{"<trace> created CertStore " + name, "<trace> created WinCertStoreImp " + name,
                     "<trace> destroyed WinCertStoreImp " + name, "<trace> destroyed CertStore " + name}));
}

TEST_F(WinCertStoreTest, AnEmptyStoreHasNoFirstCertificate) {
    const auto store = WinCertStore::open(system_store.name());
    EXPECT_EQ(store->first(), nullptr);
    EXPECT_EQ(store->find_by_subject(""), nullptr);
}

TEST_F(WinCertStoreTest, VisitsEveryCertificateOnceWhileEarlierObjectsEnd) {
    const std::vector<Bytes> all{prepared_certificate("plain"), prepared_certificate("twin_1"),
                                 prepared_certificate("twin_2"), prepared_certificate("empty")};
    system_store.add(all);
    EXPECT_THAT(walk(*WinCertStore::open(system_store.name())), ::testing::UnorderedElementsAreArray(all));
}

TEST_F(WinCertStoreTest, GoesOnWhileTheCertificatesBehindItAreDeletedFromTheStore) {
    std::vector<Bytes> all;
    for (int number = 0; number < 5; ++number)
        all.push_back(numbered_certificate(number));
    system_store.add(all);
    const auto store = WinCertStore::open(system_store.name());
    std::vector<Bytes> seen;
    auto cert = store->first();
    while (cert) {
        seen.push_back(cert->get_der_data());
        auto following = store->next(*cert);
        EXPECT_TRUE(::CertDeleteCertificateFromStore(::CertDuplicateCertificateContext(cert->context())));
        cert = std::move(following);
    }
    EXPECT_THAT(seen, ::testing::UnorderedElementsAreArray(all));
    EXPECT_EQ(store->first(), nullptr);
}

TEST_F(WinCertStoreTest, ACertificateOutlivesItsStore) {
    system_store.add(prepared_certificate("plain"));
    auto store = WinCertStore::open(system_store.name());
    const auto cert = store->first();
    store.reset();
    EXPECT_EQ(cert->get_der_data(), prepared_certificate("plain"));
}

TEST_F(WinCertStoreTest, AnyPartOfTheNameFindsTheCertificateInCapitalsOrNot) {
    system_store.add({prepared_certificate("several"), prepared_certificate("plain")});
    const auto store = WinCertStore::open(system_store.name());
    for (const char* part : {"Several Names", "several names", "FIRST, SECOND", "t"})
        EXPECT_NE(store->find_by_subject(part), nullptr) << part;
    EXPECT_EQ(store->find_by_subject("Several Names")->get_der_data(), prepared_certificate("several"));
    EXPECT_EQ(store->find_by_subject("Several  Names"), nullptr);
    EXPECT_EQ(store->find_by_subject("nobody"), nullptr);
}

class CapiStorePkoIdScannerTest : public ::testing::Test {
protected:
    std::unique_ptr<CapiStorePkoIdScanner> make_scanner() const {
        return std::make_unique<CapiStorePkoIdScanner>(system_store.name().c_str(), nullptr);
    }

    static Lines private_keys(const PkoIdList& list) {
        Lines names;
        for (const PkoId* id = list.find_first(PkoType::private_key); id != nullptr;
             id = list.find_next(PkoType::private_key, id))
            names.push_back(id->name);
        return names;
    }

    TempStore system_store;
};

TEST_F(CapiStorePkoIdScannerTest, RecordsThreeObjectsNamedByTheSubject) {
    system_store.add(prepared_certificate("several"));
    const PkoIdList list(make_scanner(), Pin());
    std::ostringstream text;
    text << list;
    std::string expected;
    const std::string name = "AT, Test Makers, First, Second, Several Names";
    for (const char* type : {"private_key", "public_key", "certificate"})
        expected += name + " [type=" + type + ", key_type=0, name=" + name + ", cluster_name=" + name + "]\n";
    EXPECT_EQ(text.str(), expected);
}

TEST_F(CapiStorePkoIdScannerTest, EqualSubjectsAreRecordedEachAndTheFirstIsFound) {
    system_store.add({prepared_certificate("twin_1"), prepared_certificate("twin_2")});
    const PkoIdList list(make_scanner(), Pin());
    EXPECT_EQ(private_keys(list), (Lines{"Twin", "Twin"}));
    EXPECT_EQ(list.find(PkoType::private_key, 0, "Twin"), list.find_first(PkoType::private_key));
}

TEST_F(CapiStorePkoIdScannerTest, ACertificateWithoutSubjectIsRecordedWithoutName) {
    system_store.add(prepared_certificate("empty"));
    const PkoIdList list(make_scanner(), Pin());
    EXPECT_EQ(private_keys(list), Lines{""});
}

TEST_F(CapiStorePkoIdScannerTest, AThousandCertificatesAreFoundEach) {
    std::vector<Bytes> certificates;
    Lines names;
    for (int number = 0; number < 1000; ++number) {
        certificates.push_back(numbered_certificate(number));
        names.push_back("Number " + std::string(4 - std::to_string(number).size(), '0') +
                        std::to_string(number));
    }
    system_store.add(certificates);
    const LogCapture log(60);
    const PkoIdList list(make_scanner(), Pin());
    Lines found = private_keys(list);
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, names);
    EXPECT_THAT(log.lines(), ::testing::Contains("<info> found 1000 certs in store " + system_store.name()));
}

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

TEST_F(CapiStoreOsslEngineTest, ReadsTheCertificateAndTheKeysThatBelongToIt) {
    const X509Ptr certificate = engine->read_certificate("Berta");
    EXPECT_EQ(der_of(certificate.get()), prepared_certificate("both", signature));
    EXPECT_EQ(signing_problem(engine->read_private_key("Berta").get(), certificate.get()), "");
    EXPECT_EQ(public_key_der(engine->read_public_key("Berta").get()),
              public_key_der(::X509_get0_pubkey(certificate.get())));
}

TEST_F(CapiStoreOsslEngineTest, AKeyTypeChangesNothing) {
    engine->set_key_type(key_exchange);
    const X509Ptr certificate = engine->read_certificate("Berta");
    EXPECT_EQ(signing_problem(engine->read_private_key("Berta").get(), certificate.get()), "");
}

TEST_F(CapiStoreOsslEngineTest, ANameThatNoSubjectContainsIsNotFound) {
    const std::string text = "ossl_engine_capi_store:236 Kes::CapiStoreOsslEngine::read_certificate(): error "
                             "finding certificate with subject "
                             "name='Nobody': rc=0";
    EXPECT_EQ(error_text([&] { engine->read_certificate("Nobody"); }), text);
    EXPECT_EQ(error_text([&] { engine->read_public_key("Nobody"); }), text);
    EXPECT_EQ(masked(error_text([&] { engine->read_private_key("Nobody"); })),
              "ossl_engine:79 Kes::OsslEngine::read_private_key(): ENGINE_load_private_key() failed: rc=0\n"
              "error:engine routines:failed loading private key:");
}

TEST_F(CapiStoreOsslEngineTest, OfEqualSubjectsTheFirstOfTheStoreIsRead) {
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
        EXPECT_EQ(der_of(certificate.get()), store->first()->get_der_data()); // all have that text
        EXPECT_EQ(signing_problem(engine->read_private_key("Twin").get(), certificate.get()), "");
    } while (std::next_permutation(twins.begin(), twins.end()));
}

TEST_F(CapiStoreOsslEngineTest, TheFirstOfTheStoreWhoseSubjectContainsTheNameIsRead) {
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
    EXPECT_EQ(signing_problem(engine->read_private_key("Twin").get(), certificate.get()), "");
    const X509Ptr other = engine->read_certificate("Twin, the Other");
    EXPECT_EQ(der_of(other.get()), prepared_certificate("other_twin", signature));
    EXPECT_EQ(signing_problem(engine->read_private_key("Twin, the Other").get(), other.get()), "");
}

TEST_F(CapiStoreOsslEngineTest, AStoreThatIsGoneIsReported) {
    system_store.remove();
    EXPECT_EQ(error_text([&] { engine->read_certificate("Berta"); }),
              "certstore_win:61 Kes::WinCertStoreImp::WinCertStoreImp(): CertOpenStore() with name=" +
                  system_store.name() + " failed: " + windows_error(2));
}

TEST_F(CapiStoreOsslEngineTest, KeyInformationThatPointsNowhereFailsTheKeyAlone) {
    const KeyPlace place = on_card("gone", signature);
    system_store.add(prepared_certificate("plain"), &place);
    EXPECT_EQ(der_of(engine->read_certificate("Paul Plain").get()), prepared_certificate("plain"));
    EXPECT_EQ(masked(error_text([&] { engine->read_private_key("Paul Plain"); })),
              "ossl_engine:79 Kes::OsslEngine::read_private_key(): ENGINE_load_private_key() failed: rc=0\n"
              "error:lib:cryptacquirecontext error:Error code= 0x80090016\n"
              "error:engine routines:failed loading private key:");
}

} // namespace
} // namespace Kes::test
