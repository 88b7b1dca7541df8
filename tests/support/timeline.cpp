#include "timeline.h"

#include <utility>

#include "doubles/call_script.h"

namespace Kes::test {

Timeline::Timeline(const LogCapture& log) : log_(log), lines_seen_(log.lines().size()) {
    CallScript::instance().observe([this](const std::string& call) {
        add_new_lines();
        entries_.push_back(call);
    });
}

Timeline::~Timeline() { CallScript::instance().observe({}); }

Lines Timeline::take() {
    add_new_lines();
    return std::exchange(entries_, {});
}

void Timeline::add_new_lines() {
    const Lines lines = log_.lines();
    entries_.insert(entries_.end(), lines.begin() + static_cast<std::ptrdiff_t>(lines_seen_), lines.end());
    lines_seen_ = lines.size();
}

} // namespace Kes::test
