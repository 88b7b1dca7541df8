#include "pkcs11/pko_id_scanner_pkcs11_libp11.h"

#include <span>
#include <string>
#include <utility>

#include "utils/error.h"
#include "utils/helper.h"
#include "utils/logger.h"

namespace Kes {
namespace {

constexpr std::uint32_t no_key_type = 0;

std::string type_word(PkoType type) {
    switch (type) {
    case PkoType::private_key:
        return "private";
    case PkoType::public_key:
        return "public";
    case PkoType::certificate:
        return "cert";
    }
    return "unknown";
}

std::unique_ptr<const CertKeyUsage> read_key_usage(X509* x509) {
    try {
        return std::make_unique<const CertKeyUsage>(x509);
    } catch (const ErrorBase& error) {
        log_warn(error.what());
        log_warn("creating dummy CertKeyUsage()");
        return std::make_unique<const CertKeyUsage>();
    }
}

/// Calls one of libp11's enumeration functions. libp11 owns the objects until the slots are released.
template <typename Object, typename Enumerate>
std::span<Object> enumerate(Enumerate function, PKCS11_TOKEN* token, const char* message,
                            const char* location) {
    Object* objects = nullptr;
    unsigned int count = 0;
    const int rc = function(token, &objects, &count);
    if (rc != 0) throw OsslError(OsslErrorCode(rc), message, location);
    return {objects, count};
}

} // namespace

Pkcs11Libp11PkoIdScanner::Pkcs11Libp11PkoIdScanner(Libp11Init* libp11_in,
                                                   std::unique_ptr<CertKeyUsageFilter> filter)
    : PkoIdScanner(std::move(filter)), libp11(libp11_in) {
    log_trace("created Pkcs11Libp11PkoIdScanner object");
}

Pkcs11Libp11PkoIdScanner::~Pkcs11Libp11PkoIdScanner() {
    log_trace("destroyed Pkcs11Libp11PkoIdScanner object");
}

void Pkcs11Libp11PkoIdScanner::scan(const Pin& pin) {
    log_info("started scanning of PKCS#11 objects");
    // null_pointer, because not_registered means a list without a scanner.
    if (list == nullptr)
        throw Error(ErrorCodeType::null_pointer, "no PkoIdList registered",
                    "pko_id_scanner_pkcs11_libp11:57 Kes::Pkcs11Libp11PkoIdScanner::scan()");
    PKCS11_TOKEN* token = libp11->get_token();
    if (!is_login_skipped) libp11->authenticate(pin);
    TokenKeyReport report(observer, *list, *key_usage_filter);
    add_certificates(token, report);
    add_private_keys(token, report);
    add_public_keys(token);
    log_info("finished scanning of PKCS#11 objects");
}

void Pkcs11Libp11PkoIdScanner::add_certificates(PKCS11_TOKEN* token, TokenKeyReport& report) {
    const auto certs =
        enumerate<PKCS11_CERT>(::PKCS11_enumerate_certs, token, "PKCS11_enumerate_certs() failed",
                               "pko_id_scanner_pkcs11_libp11:71 Kes::Pkcs11Libp11PkoIdScanner::scan()");
    // Every certificate: the filter selects private keys only.
    for (const PKCS11_CERT& cert : certs) {
        const PkoId* record =
            list->add(make_record(token, PkoType::certificate, cert, read_key_usage(cert.x509)));
        report.add_certificate(record, cert.x509);
    }
}

void Pkcs11Libp11PkoIdScanner::add_private_keys(PKCS11_TOKEN* token, TokenKeyReport& report) {
    const auto keys =
        enumerate<PKCS11_KEY>(::PKCS11_enumerate_keys, token, "PKCS11_enumerate_keys() failed",
                              "pko_id_scanner_pkcs11_libp11:78 Kes::Pkcs11Libp11PkoIdScanner::scan()");
    for (const PKCS11_KEY& key : keys) {
        auto record = make_record(token, PkoType::private_key, key, nullptr);
        const KeyVerdict verdict = judge(*record);
        report.report_key(*record, verdict);
        if (verdict == KeyVerdict::offered) list->add(std::move(record));
    }
    report.report_lone_certificates();
}

void Pkcs11Libp11PkoIdScanner::add_public_keys(PKCS11_TOKEN* token) {
    const auto keys =
        enumerate<PKCS11_KEY>(::PKCS11_enumerate_public_keys, token, "PKCS11_enumerate_public_keys() failed",
                              "pko_id_scanner_pkcs11_libp11:85 Kes::Pkcs11Libp11PkoIdScanner::scan()");
    for (const PKCS11_KEY& key : keys)
        list->add(make_record(token, PkoType::public_key, key, nullptr));
}

KeyVerdict Pkcs11Libp11PkoIdScanner::judge(const PkoId& private_key) const {
    // Search in the list: libp11's own search would query the token again for each key.
    const PkoId* cert = list->find_matching(PkoType::certificate, &private_key);
    if (cert == nullptr) {
        log_lines(Severity::warn, "corresponding cert not found; skipping private key: ", private_key);
        return KeyVerdict::no_certificate;
    }
    log_lines(Severity::info, "  corresponding cert:\n", *cert);
    if (!cert->key_usage) {
        log_lines(Severity::warn, "key usage for cert not found; skipping private key: ", private_key);
        return KeyVerdict::no_key_usage;
    }
    log_lines(Severity::info, *cert->key_usage);
    return key_verdict(key_usage_filter->judge(*cert->key_usage));
}

template <typename Object>
std::unique_ptr<PkoId>
Pkcs11Libp11PkoIdScanner::make_record(const PKCS11_TOKEN* token, PkoType type, const Object& object,
                                      std::unique_ptr<const CertKeyUsage> key_usage) const {
    const std::string token_label = Helper::text_or_empty(token->label);
    // The label is not percent-encoded. If it contains ";" or "%", the engine does not find the object.
    std::string id = "%"; // "%" + ... makes GCC 12 warn wrongly (-Wrestrict)
    id += Helper::bytes_to_hex(object.id, object.id_len, "%");
    const std::string uri = "pkcs11:token=" + token_label + ";id=" + id + ";type=" + type_word(type);
    auto record =
        list->create_pko_id(type, no_key_type, uri, id,
                            token_label + ": " + Helper::text_or_empty(object.label), std::move(key_usage));
    log_lines(Severity::info, "handling ", *record);
    return record;
}

} // namespace Kes
