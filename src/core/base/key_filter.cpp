#include "base/key_filter.h"

namespace Kes {

std::unique_ptr<CertKeyUsageFilter> create_key_filter(const CfgReader& settings) {
    return std::make_unique<CertKeyUsageFilter>(
        static_cast<FilterType>(settings.get_kuse_filter_type()), settings.get_kuse_filter(),
        static_cast<FilterType>(settings.get_xkuse_filter_type()), settings.get_xkuse_nid_filter());
}

} // namespace Kes
