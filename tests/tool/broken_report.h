#ifndef KES_TESTS_TOOL_BROKEN_REPORT_H_
#define KES_TESTS_TOOL_BROKEN_REPORT_H_

#include <string>
#include <vector>

#include "tool/doctor/finding.h"

namespace Kes::test {

/// A name on a card that tries to become a part of the page.
inline const std::string hostile_name =
    R"(</dd><script>alert("1")</script><img src=x onerror='alert(2)'>&amp;)";

/// A report with a line in each state, an engine that is wrong, and a long path.
inline std::vector<tool::Finding> broken_report() {
    using namespace tool;
    const std::string folder = "/opt/" + std::string(200, 'x');
    Text token("token ");
    token.add_personal(hostile_name);
    return {{State::ok, Link::client, "back-end", "pkcs11", ""},
            {State::warning, Link::library, "libp11 version", "0.4.13", "Free all keys before destroy()"},
            {State::error, Link::engine, "engine", folder + "/pkcs11.so is a PKCS#11 module", "Swap <both>"},
            {State::note, Link::module, "module", folder + "/module.so", ""},
            {State::skipped, Link::card, "keys", token, ""}};
}

} // namespace Kes::test

#endif // KES_TESTS_TOOL_BROKEN_REPORT_H_
