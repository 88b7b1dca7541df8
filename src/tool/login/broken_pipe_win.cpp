#include "tool/login/broken_pipe.h"

namespace Kes::tool {

void ignore_broken_pipes() {} // Windows has no such signal

} // namespace Kes::tool
