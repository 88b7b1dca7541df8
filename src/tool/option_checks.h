#ifndef KES_TOOL_OPTION_CHECKS_H_
#define KES_TOOL_OPTION_CHECKS_H_

#include <string>
#include <vector>

namespace CLI {
class Validator;
}

/// Checks for the values of options. Unlike CLI11's own, their errors do not repeat the value, which may be a
/// PIN that the user typed at the wrong place.
namespace Kes::tool {

/// The value is one of two or more names.
CLI::Validator is_one_of(const std::vector<std::string>& names);

/// The value is a whole number in decimal digits.
CLI::Validator is_number(int least, int most);

/// The value names a file that exists.
CLI::Validator is_existing_file();

} // namespace Kes::tool

#endif // KES_TOOL_OPTION_CHECKS_H_
