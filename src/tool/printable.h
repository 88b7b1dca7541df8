#ifndef KES_TOOL_PRINTABLE_H_
#define KES_TOOL_PRINTABLE_H_

#include <cstddef>
#include <string>

namespace Kes::tool {

/// A text from a card or a file as it may be printed on a terminal: control characters, characters that change
/// the direction of the text, and bytes that are not UTF-8 become "\xNN" for each byte.
std::string printable(const std::string& text);

/// The same for the start of a text. If the text has more bytes, the result ends with "...".
/// @param most  the number of bytes of the text to use; a character is not cut
std::string printable(const std::string& text, std::size_t most);

/// The same for a text of several lines, such as an error text of the library. The line ends are kept.
std::string printable_lines(const std::string& text);

} // namespace Kes::tool

#endif // KES_TOOL_PRINTABLE_H_
