#ifndef KES_TESTS_TOOL_JSON_SCHEMA_H_
#define KES_TESTS_TOOL_JSON_SCHEMA_H_

#include <string>

namespace Kes::test {

/// Validates the JSON output of a command against docs/schema/<command>.json.
/// @return the violations, one per line; "" if the output is valid
std::string schema_violations(const std::string& command, const std::string& output);

} // namespace Kes::test

#endif // KES_TESTS_TOOL_JSON_SCHEMA_H_
