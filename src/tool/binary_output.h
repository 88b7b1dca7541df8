#ifndef KES_TOOL_BINARY_OUTPUT_H_
#define KES_TOOL_BINARY_OUTPUT_H_

#include <string>

namespace Kes::tool {

/// Writes bytes to standard output without changing line ends. binary_output_posix.cpp and
/// binary_output_win.cpp implement it.
void print_bytes(const std::string& bytes);

} // namespace Kes::tool

#endif // KES_TOOL_BINARY_OUTPUT_H_
