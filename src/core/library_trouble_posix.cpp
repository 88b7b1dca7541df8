#include "library_trouble.h"

namespace Kes {

void explain_engine_failure(const char*) {}
void explain_module_failure(const char*) {}

LoaderDialogsOff::LoaderDialogsOff() = default;
LoaderDialogsOff::~LoaderDialogsOff() = default;

} // namespace Kes
