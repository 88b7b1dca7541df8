#include "tool/doctor/html_page.h"

#include <algorithm>
#include <sstream>

#include "tool/doctor/chain.h"
#include "tool/doctor/html_style.h"
#include "tool/doctor/html_text.h"

namespace Kes::tool {
namespace {

std::string counted(const std::vector<Finding>& findings, State state) {
    const auto count = std::count_if(findings.begin(), findings.end(),
                                     [state](const Finding& finding) { return finding.state == state; });
    return std::to_string(count) + " " + to_string(state) + (count == 1 ? "" : "s");
}

std::string summary(const std::vector<Finding>& findings) {
    return counted(findings, State::error) + ", " + counted(findings, State::warning);
}

void write_head(std::ostream& page, const std::vector<Finding>& findings) {
    // The policy makes a browser refuse whatever a mistake in this program would let into the page.
    page << R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="light dark">
<title>marvo doctor: )"
         << summary(findings) << "</title>\n<style>\n"
         << html_style << "</style>\n</head>\n";
}

void write_line(std::ostream& page, const Finding& line, Names names) {
    const char* state = to_string(line.state);
    page << "<div><dt class='state " << state << "'><svg aria-hidden='true'><use href='#state-" << state
         << "'/></svg>" << state << "</dt><dd><strong>" << html_escaped(line.check) << ":</strong> "
         << html_escaped(line.finding.str(names)) << "</dd>";
    if (!line.remedy.empty())
        page << "<dd class='remedy'><strong>Remedy:</strong> " << html_escaped(line.remedy.str(names))
             << "</dd>";
    page << "</div>\n";
}

void write_lines(std::ostream& page, const std::vector<const Finding*>& lines, Names names) {
    page << "<dl class='lines'>\n";
    for (const Finding* line : lines)
        write_line(page, *line, names);
    page << "</dl>\n";
}

/// The errors, then the warnings.
void write_mistakes(std::ostream& page, const std::vector<Finding>& findings, Names names) {
    std::vector<const Finding*> mistakes;
    for (const State state : {State::error, State::warning})
        for (const Finding& finding : findings)
            if (finding.state == state) mistakes.push_back(&finding);
    if (mistakes.empty()) return;
    page << "<h2>What is wrong</h2>\n";
    write_lines(page, mistakes, names);
}

void write_all_lines(std::ostream& page, const Chain& chain, Names names) {
    page << "<h2>All checks</h2>\n";
    for (const ChainPart& part : chain.parts) {
        if (part.lines.empty()) continue;
        page << "<h3>" << part.name << "</h3>\n";
        write_lines(page, part.lines, names);
    }
}

void write_footer(std::ostream& page, const HtmlPageFacts& facts) {
    page << "<footer><p>Made by marvo " << html_escaped(facts.version) << " on " << html_escaped(facts.time)
         << ". "
         << (facts.names == Names::shown ? "This page contains personal data."
                                         : "Personal data is left out: [name] stands for it.")
         << "</p></footer>\n";
}

} // namespace

std::string html_page(const std::vector<Finding>& findings, const HtmlPageFacts& facts) {
    const Chain chain = read_chain(findings);
    std::ostringstream page;
    write_head(page, findings);
    page << "<body>\n"
         << html_symbols
         << "<main>\n<h1>Smart-card login: state of the installation</h1>\n<p class='summary'>"
         << summary(findings) << "</p>\n<figure>\n"
         << chain_pictures(chain) << "</figure>\n";
    write_mistakes(page, findings, facts.names);
    write_all_lines(page, chain, facts.names);
    write_footer(page, facts);
    page << "</main>\n</body>\n</html>\n";
    return page.str();
}

} // namespace Kes::tool
