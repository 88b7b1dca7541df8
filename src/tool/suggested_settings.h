#ifndef KES_TOOL_SUGGESTED_SETTINGS_H_
#define KES_TOOL_SUGGESTED_SETTINGS_H_

#include "tool/environment.h"

namespace Kes::tool {

/// The shell of this system, as shell_assignment() calls it.
const char* usual_shell();

/// Keys and values of settings whose defaults do not work on this system. The files exist.
/// suggested_settings_posix.cpp and suggested_settings_win.cpp implement both functions.
Variables suggest_settings();

} // namespace Kes::tool

#endif // KES_TOOL_SUGGESTED_SETTINGS_H_
