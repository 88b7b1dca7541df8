#include <csignal>

#include "tool/login/broken_pipe.h"

namespace Kes::tool {

void ignore_broken_pipes() { std::signal(SIGPIPE, SIG_IGN); }

} // namespace Kes::tool
