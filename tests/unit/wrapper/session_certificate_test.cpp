#include <cstdlib>
#include <limits>

#include "scripted_scard.h"

namespace Kes::test {
namespace {

bool is_memory_short = false;

void* allocate(std::size_t size, const char*, int) { return is_memory_short ? nullptr : std::malloc(size); }

void* reallocate(void* memory, std::size_t size, const char*, int) { return std::realloc(memory, size); }

void release(void* memory, const char*, int) { std::free(memory); }

// OpenSSL accepts other functions only before its first allocation.
const bool is_memory_controlled = CRYPTO_set_mem_functions(&allocate, &reallocate, &release) == 1;

class SessionCertificateTest : public SessionTest {
protected:
    marvo::Certificate load() {
        marvo::Session session = open();
        return session.load();
    }

    static constexpr std::uint32_t not_limited = std::numeric_limits<std::uint32_t>::max();
};

TEST_F(SessionCertificateTest, NamesAreInUtf8) {
    EXPECT_EQ(load().subject, "CN=Grace Hopper,O=Mäkers");
    EXPECT_EQ(load().issuer, "CN=Grace Hopper,O=Mäkers");
}

TEST_F(SessionCertificateTest, DatesAreInSecondsSince1970) {
    EXPECT_EQ(load().not_before, 1709208000);
    EXPECT_EQ(load().not_after, 253402300799);
}

TEST_F(SessionCertificateTest, CertificateIsValidFromItsFirstToItsLastSecond) {
    const marvo::Certificate certificate = load();
    EXPECT_FALSE(certificate.is_valid_at(1709207999));
    EXPECT_TRUE(certificate.is_valid_at(1709208000));
    EXPECT_TRUE(certificate.is_valid_at(253402300799));
    EXPECT_FALSE(certificate.is_valid_at(253402300800));
}

TEST_F(SessionCertificateTest, CertificateWithoutUsagesIsNotLimited) {
    const marvo::Certificate certificate = load();
    EXPECT_EQ(certificate.key_usage, not_limited);
    EXPECT_EQ(certificate.ext_key_usage, not_limited);
    EXPECT_TRUE(certificate.is_meant_for_clients);
}

TEST_F(SessionCertificateTest, UsagesOfAClientAreRead) {
    card.cert = create_certificate(card.key.get(), {{"keyUsage", "digitalSignature,keyAgreement"},
                                                    {"extendedKeyUsage", "clientAuth,emailProtection"}});
    const marvo::Certificate certificate = load();
    EXPECT_EQ(certificate.key_usage, std::uint32_t{KU_DIGITAL_SIGNATURE | KU_KEY_AGREEMENT});
    EXPECT_EQ(certificate.ext_key_usage, std::uint32_t{XKU_SSL_CLIENT | XKU_SMIME});
    EXPECT_TRUE(certificate.is_meant_for_clients);
}

TEST_F(SessionCertificateTest, CertificateOfAServerIsNotMeantForClients) {
    card.cert = create_certificate(card.key.get(), {{"extendedKeyUsage", "serverAuth"}});
    const marvo::Certificate certificate = load();
    EXPECT_EQ(certificate.ext_key_usage, std::uint32_t{XKU_SSL_SERVER});
    EXPECT_FALSE(certificate.is_meant_for_clients);
}

TEST_F(SessionCertificateTest, UnreadableDateIsReported) {
    ASN1_STRING_set(X509_getm_notAfter(card.cert.get()), "never", -1);
    EXPECT_EQ(error_of([this] { load(); }), "the certificate has a date that cannot be read");
}

TEST_F(SessionCertificateTest, DateThatCannotBeComparedForLackOfMemoryIsReported) {
    ASSERT_TRUE(is_memory_controlled);
    ERR_clear_error(); // allocates the thread's queue
    is_memory_short = true;
    const std::string error =
        error_of([this] { marvo::detail::seconds_since_1970(X509_get0_notAfter(card.cert.get())); });
    is_memory_short = false;
    EXPECT_EQ(error, "ASN1_TIME_set failed: malloc failure");
}

} // namespace
} // namespace Kes::test
