#include "tool/suggested_settings.h"

namespace Kes::tool {

const char* usual_shell() { return "cmd"; }

Variables suggest_settings() { return {}; } // the defaults are names of Windows files

} // namespace Kes::tool
