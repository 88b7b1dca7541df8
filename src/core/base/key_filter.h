#ifndef KES_BASE_KEY_FILTER_H_
#define KES_BASE_KEY_FILTER_H_

#include <memory>

#include "base/cfg_reader.h"
#include "utils/cert_key_usage.h"

namespace Kes {

/// Creates the filter that the settings describe.
std::unique_ptr<CertKeyUsageFilter> create_key_filter(const CfgReader& settings);

} // namespace Kes

#endif // KES_BASE_KEY_FILTER_H_
