#ifndef KES_TOOL_LOGIN_BROKEN_PIPE_H_
#define KES_TOOL_LOGIN_BROKEN_PIPE_H_

namespace Kes::tool {

/// Lets a write to a closed connection fail, instead of ending the program. broken_pipe_posix.cpp and
/// broken_pipe_win.cpp implement it.
void ignore_broken_pipes();

} // namespace Kes::tool

#endif // KES_TOOL_LOGIN_BROKEN_PIPE_H_
