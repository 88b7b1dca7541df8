#include "utils/load_diagnostics.h"

namespace Kes {

void explain_engine_failure(const char*) {}
void explain_module_failure(const char*) {}

ScopedNoLoaderDialogs::ScopedNoLoaderDialogs() = default;
ScopedNoLoaderDialogs::~ScopedNoLoaderDialogs() = default;

} // namespace Kes
