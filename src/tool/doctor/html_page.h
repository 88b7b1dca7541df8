#ifndef KES_TOOL_DOCTOR_HTML_PAGE_H_
#define KES_TOOL_DOCTOR_HTML_PAGE_H_

#include <string>
#include <vector>

#include "tool/doctor/finding.h"

namespace Kes::tool {

/// What the page says besides the lines of the report.
struct HtmlPageFacts {
    Names names;         ///< whether the page shows personal data
    std::string version; ///< of this program
    std::string time;    ///< of the report
};

/// The report as a page in HTML: complete in one file, without scripts and without references to other files.
std::string html_page(const std::vector<Finding>& findings, const HtmlPageFacts& facts);

} // namespace Kes::tool

#endif // KES_TOOL_DOCTOR_HTML_PAGE_H_
