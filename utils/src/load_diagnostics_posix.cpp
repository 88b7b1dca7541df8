#include "utils/load_diagnostics.h"

namespace Kes {

void append_engine_load_error(const char*) {}
void append_module_load_error(const char*) {}

ScopedNoLoaderDialogs::ScopedNoLoaderDialogs() = default;
ScopedNoLoaderDialogs::~ScopedNoLoaderDialogs() = default;

} // namespace Kes
