#include "tool/doctor/chain.h"

#include <algorithm>
#include <cctype>
#include <sstream>

namespace Kes::tool {
namespace {

/// Where the parts are drawn, in the units of the picture.
struct Layout {
    const char* name; ///< also the class for the style sheet
    int step_x;       ///< from one box to the next
    int step_y;
    int box_width;
};

constexpr Layout wide{"wide", 210, 0, 150};
constexpr Layout tall{"tall", 0, 160, 260};
constexpr int box_height = 110;
constexpr int margin = 4;

struct Point {
    int x;
    int y;
};

Point corner_of(const Layout& layout, int number) {
    return {margin + number * layout.step_x, margin + number * layout.step_y};
}

int severity(State state) {
    constexpr std::array order{State::skipped, State::ok, State::note, State::warning, State::error};
    return static_cast<int>(std::find(order.begin(), order.end(), state) - order.begin());
}

void draw_box(std::ostream& svg, const Layout& layout, const ChainPart& part, Point corner, bool is_broken) {
    const int middle = corner.x + layout.box_width / 2;
    const char* state = to_string(part.state);
    svg << "<g class='" << state << "'><rect class='box" << (is_broken ? " broken" : "") << "' x='"
        << corner.x << "' y='" << corner.y << "' width='" << layout.box_width << "' height='" << box_height
        << "' rx='10'/><use href='#state-" << state << "' x='" << middle - 14 << "' y='" << corner.y + 12
        << "' width='28' height='28'/><text x='" << middle << "' y='" << corner.y + 64 << "'>" << part.name
        << "</text><text class='word' x='" << middle << "' y='" << corner.y + 90 << "'>"
        << (is_broken            ? "broken here"
            : part.lines.empty() ? "not checked"
                                 : state)
        << "</text></g>\n";
}

/// Draws the line from the box before to this one.
void draw_connector(std::ostream& svg, const Layout& layout, Point corner, const char* kind, bool is_broken) {
    const bool is_tall = layout.step_y != 0;
    const Point end = is_tall ? Point{corner.x + layout.box_width / 2, corner.y - 4}
                              : Point{corner.x - 4, corner.y + box_height / 2};
    const int length = is_tall ? layout.step_y - box_height - 8 : layout.step_x - layout.box_width - 8;
    const Point start = is_tall ? Point{end.x, end.y - length} : Point{end.x - length, end.y};
    svg << "<path class='connector " << kind << "' d='M" << start.x << ' ' << start.y << 'L' << end.x << ' '
        << end.y << "'/>\n";
    if (!is_broken) return;
    const Point middle{(start.x + end.x) / 2, (start.y + end.y) / 2};
    svg << "<path class='cross' d='M" << middle.x - 10 << ' ' << middle.y - 10 << "l20 20M" << middle.x + 10
        << ' ' << middle.y - 10 << "l-20 20'/>\n";
}

std::string description(const Chain& chain) {
    std::string text;
    for (std::size_t i = 0; i < chain.parts.size(); ++i) {
        const ChainPart& part = chain.parts.at(i);
        text += (i == 0 ? "" : "; ") + part.name + ": " +
                (part.lines.empty() ? "not checked" : to_string(part.state)) +
                (chain.broken == i ? ", the chain is broken here" : "");
    }
    return text;
}

void draw(std::ostream& svg, const Layout& layout, const Chain& chain) {
    const Point last = corner_of(layout, static_cast<int>(chain.parts.size()) - 1);
    svg << "<svg class='" << layout.name << "' role='img' aria-labelledby='chain-" << layout.name
        << "-title chain-" << layout.name << "-text' viewBox='0 0 " << last.x + layout.box_width + margin
        << ' ' << last.y + box_height + margin << "'>\n<title id='chain-" << layout.name
        << "-title'>From the client program to the card</title>\n<desc id='chain-" << layout.name << "-text'>"
        << description(chain) << "</desc>\n";
    for (std::size_t i = 0; i < chain.parts.size(); ++i) {
        const Point corner = corner_of(layout, static_cast<int>(i));
        const bool is_broken = chain.broken == i;
        const bool is_after = chain.broken && i > *chain.broken;
        const char* kind = is_broken ? "broken" : is_after ? "after" : "whole";
        if (i > 0) draw_connector(svg, layout, corner, kind, is_broken);
        draw_box(svg, layout, chain.parts.at(i), corner, is_broken);
    }
    svg << "</svg>\n";
}

} // namespace

Chain read_chain(const std::vector<Finding>& findings) {
    Chain chain;
    for (const Link link : {Link::client, Link::library, Link::engine, Link::module, Link::card}) {
        ChainPart& part = chain.parts.at(static_cast<std::size_t>(link));
        part.name = to_string(link);
        part.name[0] = static_cast<char>(std::toupper(part.name[0]));
    }
    for (const Finding& finding : findings) {
        ChainPart& part = chain.parts.at(static_cast<std::size_t>(finding.link));
        part.lines.push_back(&finding);
        if (severity(finding.state) > severity(part.state)) part.state = finding.state;
    }
    for (std::size_t i = chain.parts.size(); i-- > 0;)
        if (chain.parts.at(i).state == State::error) chain.broken = i;
    return chain;
}

std::string chain_pictures(const Chain& chain) {
    std::ostringstream svg;
    for (const Layout& layout : {wide, tall})
        draw(svg, layout, chain);
    return svg.str();
}

} // namespace Kes::tool
