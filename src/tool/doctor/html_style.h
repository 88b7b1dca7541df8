#ifndef KES_TOOL_DOCTOR_HTML_STYLE_H_
#define KES_TOOL_DOCTOR_HTML_STYLE_H_

namespace Kes::tool {

/// The style sheet of the page.
extern const char* const html_style;

/// The symbols of the states, which pictures use by the id "state-" and the name of the state. Each state has
/// a shape of its own, because not everybody can tell the colours apart.
extern const char* const html_symbols;

} // namespace Kes::tool

#endif // KES_TOOL_DOCTOR_HTML_STYLE_H_
