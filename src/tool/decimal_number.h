#ifndef KES_TOOL_DECIMAL_NUMBER_H_
#define KES_TOOL_DECIMAL_NUMBER_H_

#include <string>

namespace Kes::tool {

/// @return the number that the text consists of, in decimal digits; -1 if it has another form or is too large
int decimal_number(const std::string& text);

} // namespace Kes::tool

#endif // KES_TOOL_DECIMAL_NUMBER_H_
