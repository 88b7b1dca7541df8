#ifndef KES_TOOL_TEXT_OUTPUT_H_
#define KES_TOOL_TEXT_OUTPUT_H_

#include <cstddef>
#include <ostream>
#include <string>

namespace Kes::tool {

/// The columns that a line of output may have.
constexpr std::size_t max_columns = 100;

/// The columns of a text, if each character needs one.
std::size_t columns_of(const std::string& text);

/// Prints a label and a printable text in two columns. A text that is too long continues on the next line,
/// below its first word.
/// @param indent  the columns before the label
/// @param width   the columns of the label
void print_field(std::ostream& out, std::size_t indent, std::size_t width, const std::string& label,
                 const std::string& text);

} // namespace Kes::tool

#endif // KES_TOOL_TEXT_OUTPUT_H_
