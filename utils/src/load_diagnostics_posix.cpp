#include "utils/load_diagnostics.h"

namespace Kes {

// OpenSSL adds the message of dlopen() to its error queue, and libp11 prints it to standard error.
void append_engine_load_error(const char*) {}
void append_module_load_error(const char*) {}

ScopedNoLoaderDialogs::ScopedNoLoaderDialogs() = default;
ScopedNoLoaderDialogs::~ScopedNoLoaderDialogs() = default;

} // namespace Kes
