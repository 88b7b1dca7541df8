#include "capi/pko_id_scanner_capi_store.h"

#include <utility>

#include "capi/capi_key_report.h"
#include "utils/certstore_win.h"
#include "utils/error.h"
#include "utils/logger.h"

namespace Kes {
namespace {

constexpr std::uint32_t no_key_type = 0;

} // namespace

CapiStorePkoIdScanner::CapiStorePkoIdScanner(const char* store_name_in,
                                             std::unique_ptr<CertKeyUsageFilter> filter)
    : PkoIdScanner(std::move(filter)), store_name(store_name_in == nullptr ? "" : store_name_in) {
    log_trace("created CapiStorePkoIdScanner object");
}

CapiStorePkoIdScanner::~CapiStorePkoIdScanner() { log_trace("destroyed CapiStorePkoIdScanner object"); }

void CapiStorePkoIdScanner::scan(const Pin&) {
    log_info("scanning CAPI store key containers");
    if (list == nullptr)
        throw Error(ErrorCodeType::null_pointer, "no PkoIdList registered",
                    "pko_id_scanner_capi_store:64 Kes::CapiStorePkoIdScanner::scan()");
    const auto store = WinCertStore::open(store_name);
    auto cert = store->first();
    if (!cert) {
        log_warn("no certificate found in store ", store_name);
        return;
    }
    std::size_t count = 0;
    for (; cert; cert = store->next(*cert)) {
        ++count;
        add_certificate(*cert);
    }
    log_info("found ", count, " certs in store ", store_name);
}

void CapiStorePkoIdScanner::add_certificate(const WinCert& cert) {
    log_lines(Severity::info, cert);
    const CertKeyUsage key_usage(cert);
    log_lines(Severity::info, key_usage);
    const KeyVerdict verdict = key_verdict(key_usage_filter->judge(key_usage));
    if (observer != nullptr) {
        const std::string name = cert.get_subject_name_simple();
        report_key(*observer, {PkoType::private_key, no_key_type, name, name, name, nullptr},
                   cert.get_der_data(), key_usage, verdict);
    }
    if (verdict != KeyVerdict::offered) return;
    const std::string name = cert.get_subject_name_simple();
    for (const PkoType type : {PkoType::private_key, PkoType::public_key, PkoType::certificate})
        list->add(type, no_key_type, name, name, name, nullptr);
}

} // namespace Kes
