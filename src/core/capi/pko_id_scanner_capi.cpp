#include "capi/pko_id_scanner_capi.h"

#include <utility>
#include <vector>

#include "base/capi_key_type.h"
#include "capi/capi_key_report.h"
#include "utils/error.h"
#include "utils/logger.h"

namespace Kes {

CapiPkoIdScanner::CapiPkoIdScanner(std::string csp_name_in, std::unique_ptr<CertKeyUsageFilter> filter)
    : PkoIdScanner(std::move(filter)), csp_name(std::move(csp_name_in)) {
    log_trace("created CapiPkoIdScanner object");
}

CapiPkoIdScanner::~CapiPkoIdScanner() { log_trace("destroyed CapiPkoIdScanner object"); }

void CapiPkoIdScanner::scan(const Pin&) {
    log_info("scanning CAPI key containers");
    if (list == nullptr)
        throw Error(ErrorCodeType::null_pointer, "no PkoIdList registered",
                    "pko_id_scanner_capi:59 Kes::CapiPkoIdScanner::scan()");
    const CapiInit provider(csp_name.c_str(), nullptr, 0);
    const CapiKeySpecs key_specs = read_capi_key_specs(provider.provider());
    log_info("capi keyspec_mask=", key_specs.mask);
    for (const std::string& container : read_capi_containers(provider.provider())) {
        std::uint32_t key_spec = 0;
        try {
            scan_container(container, key_specs, key_spec);
        } catch (const WinError& error) {
            // A failure costs only its container; see docs/decisions/0008-skipping-unreadable-keys.md.
            log_debug(error.what());
            report_failure(container, key_spec, error.what());
        } catch (const ErrorBase& error) {
            log_warn("skipping container '", container, "': ", error.what());
            report_failure(container, key_spec, error.what());
        }
    }
}

void CapiPkoIdScanner::scan_container(const std::string& container, const CapiKeySpecs& key_specs,
                                      std::uint32_t& key_spec) {
    CapiInit capi(csp_name.c_str(), container.c_str(), 0);
    for (const std::uint32_t candidate : key_specs.list) {
        if (!capi.try_fetch_key(candidate)) continue;
        key_spec = candidate;
        add_key(capi, container, key_spec);
    }
}

void CapiPkoIdScanner::add_key(const CapiInit& capi, const std::string& container, std::uint32_t key_spec) {
    const std::vector<unsigned char> der = read_capi_key_certificate(capi.key());
    const CertKeyUsage key_usage(der);
    log_lines(Severity::info, key_usage);
    const KeyVerdict verdict = key_verdict(key_usage_filter->judge(key_usage));
    const std::string display_name = container + " (" + capi_key_type_name(key_spec) + ")";
    if (observer != nullptr)
        report_key(*observer, {PkoType::private_key, key_spec, container, container, display_name, nullptr},
                   der, key_usage, verdict);
    if (verdict != KeyVerdict::offered) return;
    for (const PkoType type : {PkoType::private_key, PkoType::public_key, PkoType::certificate})
        list->add(type, key_spec, container, container, display_name, nullptr);
}

void CapiPkoIdScanner::report_failure(const std::string& container, std::uint32_t key_spec,
                                      const char* reason) const {
    if (observer != nullptr) observer->failed_container(container, key_spec, reason);
}

} // namespace Kes
