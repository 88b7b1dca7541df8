#ifndef KES_TOOL_DOCTOR_HTML_TEXT_H_
#define KES_TOOL_DOCTOR_HTML_TEXT_H_

#include <string>

namespace Kes::tool {

/// A text as the content of an element or as the value of an attribute: without markup, valid UTF-8, and
/// without control characters.
std::string html_escaped(const std::string& text);

} // namespace Kes::tool

#endif // KES_TOOL_DOCTOR_HTML_TEXT_H_
