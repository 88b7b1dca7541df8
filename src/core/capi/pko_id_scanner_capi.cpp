#include "capi/pko_id_scanner_capi.h"

#include <utility>

#include "base/capi_key_type.h"
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
        try {
            scan_container(container, key_specs);
        } catch (const WinError& error) {
            // A failure costs only its container; see docs/decisions/0008-skipping-unreadable-keys.md.
            log_debug(error.what());
        } catch (const ErrorBase& error) {
            log_warn("skipping container '", container, "': ", error.what());
        }
    }
}

void CapiPkoIdScanner::scan_container(const std::string& container, const CapiKeySpecs& key_specs) {
    CapiInit capi(csp_name.c_str(), container.c_str(), 0);
    for (const std::uint32_t key_spec : key_specs.list)
        if (capi.try_fetch_key(key_spec)) add_key(capi, container, key_spec);
}

void CapiPkoIdScanner::add_key(const CapiInit& capi, const std::string& container, std::uint32_t key_spec) {
    const CertKeyUsage key_usage(read_capi_key_certificate(capi.key()));
    log_lines(Severity::info, key_usage);
    if (!key_usage_filter->check(key_usage)) return;
    const std::string display_name = container + " (" + capi_key_type_name(key_spec) + ")";
    for (const PkoType type : {PkoType::private_key, PkoType::public_key, PkoType::certificate})
        list->add(type, key_spec, container, container, display_name, nullptr);
}

} // namespace Kes
