// Tests of certificate stores with the functions of Windows itself.
#include <utility>

#include "support/csp_card_fixture.h"
#include "utils/certstore_win.h"

namespace Kes::test {
namespace {

class WinCertStoreTest : public ::testing::Test {
protected:
    /// The certificates in the order of enumeration.
    static std::vector<Bytes> certificates_of(const WinCertStore& store) {
        std::vector<Bytes> certificates;
        for (auto cert = store.first(); cert; cert = store.next(*cert))
            certificates.push_back(cert->get_der_data());
        return certificates;
    }

    TempStore system_store;
};

TEST_F(WinCertStoreTest, MissingStoreIsReportedByName) {
    system_store.remove();
    EXPECT_EQ(error_text([&] { WinCertStore::open(system_store.name()); }),
              "certstore_win:61 Kes::WinCertStoreImp::WinCertStoreImp(): CertOpenStore() with name=" +
                  system_store.name() + " failed: " + windows_error(2));
}

TEST_F(WinCertStoreTest, LogsTheCreationAndDestructionOfEachObject) {
    const LogCapture log;
    WinCertStore::open(system_store.name());
    const std::string name = "[" + system_store.name() + "]";
    EXPECT_EQ(log.lines(),
              (Lines{"<trace> created CertStore " + name, "<trace> created WinCertStoreImp " + name,
                     "<trace> destroyed WinCertStoreImp " + name, "<trace> destroyed CertStore " + name}));
}

TEST_F(WinCertStoreTest, EmptyStoreHasNoFirstCertificate) {
    const auto store = WinCertStore::open(system_store.name());
    EXPECT_EQ(store->first(), nullptr);
    EXPECT_EQ(store->find_by_subject(""), nullptr);
}

TEST_F(WinCertStoreTest, VisitsEveryCertificateOnceWhileEarlierObjectsAreDestroyed) {
    const std::vector<Bytes> all{prepared_certificate("plain"), prepared_certificate("twin_1"),
                                 prepared_certificate("twin_2"), prepared_certificate("empty")};
    system_store.add(all);
    EXPECT_THAT(certificates_of(*WinCertStore::open(system_store.name())),
                ::testing::UnorderedElementsAreArray(all));
}

TEST_F(WinCertStoreTest, EnumerationContinuesWhileVisitedCertificatesAreDeletedFromTheStore) {
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

TEST_F(WinCertStoreTest, CertificateOutlivesItsStore) {
    system_store.add(prepared_certificate("plain"));
    auto store = WinCertStore::open(system_store.name());
    const auto cert = store->first();
    store.reset();
    EXPECT_EQ(cert->get_der_data(), prepared_certificate("plain"));
}

TEST_F(WinCertStoreTest, AnyPartOfTheNameFindsTheCertificateRegardlessOfCase) {
    system_store.add({prepared_certificate("several"), prepared_certificate("plain")});
    const auto store = WinCertStore::open(system_store.name());
    for (const char* part : {"Several Names", "several names", "FIRST, SECOND", "t"})
        EXPECT_NE(store->find_by_subject(part), nullptr) << part;
    EXPECT_EQ(store->find_by_subject("Several Names")->get_der_data(), prepared_certificate("several"));
    EXPECT_EQ(store->find_by_subject("Several  Names"), nullptr);
    EXPECT_EQ(store->find_by_subject("nobody"), nullptr);
}

} // namespace
} // namespace Kes::test
