#ifndef KES_TOOL_PRINTABLE_H_
#define KES_TOOL_PRINTABLE_H_

#include <string>

namespace Kes::tool {

/// A text from elsewhere, safe to print on a terminal: control characters and bytes that are not valid UTF-8
/// become \n, \t or \x1b, a backslash becomes two, and a text that is too long ends with "...".
/// @param most  the number of bytes of the text to use
std::string printable(const std::string& text, std::size_t most);

} // namespace Kes::tool

#endif // KES_TOOL_PRINTABLE_H_
