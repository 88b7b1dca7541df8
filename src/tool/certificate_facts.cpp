#include "tool/certificate_facts.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <openssl/asn1.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "utils/ossl_ptr.h"

namespace Kes::tool {
namespace {

std::string serial_text(const X509* certificate) {
    using BignumPtr = std::unique_ptr<BIGNUM, FreeWith<&::BN_free>>;
    const BignumPtr number(::ASN1_INTEGER_to_BN(::X509_get0_serialNumber(certificate), nullptr));
    if (!number) return "";
    char* text = ::BN_bn2hex(number.get());
    std::string serial = text == nullptr ? "" : text;
    ::OPENSSL_free(text);
    return serial;
}

std::string time_text(const ASN1_TIME* time) {
    std::tm parts{};
    if (::ASN1_TIME_to_tm(time, &parts) != 1) return "";
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text.data();
}

/// The days from the day of now to the day of the certificate's end, in UTC.
long days_until(const ASN1_TIME* end, std::time_t now) {
    using namespace std::chrono;
    std::tm parts{};
    if (::ASN1_TIME_to_tm(end, &parts) != 1) return 0;
    const year_month_day last{year(parts.tm_year + 1900), month(static_cast<unsigned int>(parts.tm_mon + 1)),
                              day(static_cast<unsigned int>(parts.tm_mday))};
    return static_cast<long>((sys_days(last) - floor<days>(system_clock::from_time_t(now))).count());
}

void read_key(X509* certificate, CertificateFacts& facts) {
    const EVP_PKEY* key = ::X509_get0_pubkey(certificate);
    const char* type = key == nullptr ? nullptr : ::EVP_PKEY_get0_type_name(key);
    if (type == nullptr) return;
    facts.key_type = type;
    facts.key_bits = ::EVP_PKEY_get_bits(key);
    std::array<char, 80> curve{};
    std::size_t length = 0;
    if (facts.key_type == "EC" && ::EVP_PKEY_get_group_name(key, curve.data(), curve.size(), &length) == 1)
        facts.curve = curve.data();
}

} // namespace

std::string name_text(const X509_NAME* name) {
    // UTF-8 instead of escaped bytes.
    constexpr unsigned long format = XN_FLAG_RFC2253 & ~static_cast<unsigned long>(ASN1_STRFLGS_ESC_MSB);
    const BioPtr memory(::BIO_new(::BIO_s_mem()));
    if (!memory || ::X509_NAME_print_ex(memory.get(), name, 0, format) < 0) return "";
    char* data = nullptr;
    const long length = BIO_get_mem_data(memory.get(), &data);
    return data == nullptr ? "" : std::string(data, static_cast<std::size_t>(length));
}

std::vector<std::string> key_usage_names(std::uint32_t mask) {
    struct Name {
        std::uint32_t bit;
        const char* name;
    };
    static constexpr std::array names{
        Name{KU_DIGITAL_SIGNATURE, "digitalSignature"},
        Name{KU_NON_REPUDIATION, "nonRepudiation"},
        Name{KU_KEY_ENCIPHERMENT, "keyEncipherment"},
        Name{KU_DATA_ENCIPHERMENT, "dataEncipherment"},
        Name{KU_KEY_AGREEMENT, "keyAgreement"},
        Name{KU_KEY_CERT_SIGN, "keyCertSign"},
        Name{KU_CRL_SIGN, "cRLSign"},
        Name{KU_ENCIPHER_ONLY, "encipherOnly"},
        Name{KU_DECIPHER_ONLY, "decipherOnly"},
    };
    std::vector<std::string> found;
    for (const auto& [bit, name] : names)
        if ((mask & bit) != 0) found.emplace_back(name);
    return found;
}

std::string extended_key_usage_name(const std::string& oid) {
    const int nid = ::OBJ_txt2nid(oid.c_str());
    return nid == NID_undef ? oid : ::OBJ_nid2sn(nid);
}

std::string days_left_text(const CertificateFacts& facts) {
    return std::to_string(facts.days_left) + (facts.days_left == 1 ? " day left" : " days left");
}

CertificateFacts read_facts(X509* certificate, const CertKeyUsage& key_usage, std::time_t now) {
    CertificateFacts facts;
    facts.subject = name_text(::X509_get_subject_name(certificate));
    facts.issuer = name_text(::X509_get_issuer_name(certificate));
    facts.serial = serial_text(certificate);
    const ASN1_TIME* begin = ::X509_get0_notBefore(certificate);
    const ASN1_TIME* end = ::X509_get0_notAfter(certificate);
    facts.not_before = time_text(begin);
    facts.not_after = time_text(end);
    facts.days_left = days_until(end, now);
    facts.is_expired = ::X509_cmp_time(end, &now) < 0;
    facts.is_not_yet_valid = ::X509_cmp_time(begin, &now) > 0;
    read_key(certificate, facts);
    facts.key_usages = key_usage_names(key_usage.kuse_mask());
    for (const std::string& oid : key_usage.xkuse_nid_list())
        facts.extended_key_usages.push_back(extended_key_usage_name(oid));
    return facts;
}

} // namespace Kes::tool
