// Tests of certificates with the functions of Windows itself.
#include <ostream>

#include "support/csp_card_fixture.h"
#include "utils/certstore_win.h"

namespace Kes::test {
namespace {

/// The text as the "A" functions of Windows return it. The code page may not contain all letters.
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

class WinCertNameTest : public ::testing::TestWithParam<Name> {};

const std::wstring maker = L"Gr\u00fc\u00dfe";
const std::wstring person = L"J\u00f6rn Wei\u00dfer";
INSTANTIATE_TEST_SUITE_P(
    Names, WinCertNameTest,
    ::testing::Values(
        Name{"plain", "CN=Paul Plain", "Paul Plain"}, Name{"empty", "", ""},
        Name{"several", "C=AT, O=Test Makers, OU=First, OU=Second, CN=Several Names",
             "AT, Test Makers, First, Second, Several Names"},
        Name{"multi_valued", "O=Test Makers, OU=Unit + CN=Multi Valued", "Test Makers, Unit + Multi Valued"},
        Name{"quotes", R"(O="Makers, Sons + Co", CN="The ""Great"" Gerda")",
             R"("Makers, Sons + Co", "The ""Great"" Gerda")"},
        Name{"utf8", in_code_page(L"O=" + maker + L", CN=" + person), in_code_page(maker + L", " + person)},
        Name{"bmp", in_code_page(L"O=" + maker + L", CN=" + person), in_code_page(maker + L", " + person)}));

TEST_P(WinCertNameTest, FullAndSimpleFormMatchTheCertificate) {
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

TEST_P(WinCertNameTest, SimpleFormFindsTheCertificateInAStore) {
    TempStore system_store;
    system_store.add({prepared_certificate("number"), prepared_certificate(GetParam().certificate)});
    const auto store = WinCertStore::open(system_store.name());
    const auto found = store->find_by_subject(GetParam().simple.c_str());
    ASSERT_NE(found, nullptr);
    // Every name except an empty one contains the empty text, so that search finds the other certificate.
    const std::string expected = GetParam().simple.empty() ? "number" : GetParam().certificate;
    EXPECT_EQ(found->get_der_data(), prepared_certificate(expected));
}

TEST(WinCertTest, FileContainsTheCertificateByteForByte) {
    const TempDir dir;
    const Bytes der = prepared_certificate("plain");
    const WinCert cert(
        ::CertCreateCertificateContext(X509_ASN_ENCODING, der.data(), static_cast<DWORD>(der.size())), true);
    cert.write_der_file(dir.file("cert.der"));
    EXPECT_EQ(read_file(dir.file("cert.der")), std::string(der.begin(), der.end()));
}

} // namespace
} // namespace Kes::test
