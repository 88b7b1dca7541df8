#ifndef KES_TESTS_DOUBLES_TEXT_OR_NULL_H_
#define KES_TESTS_DOUBLES_TEXT_OR_NULL_H_

#include <string>

namespace Kes::test {

/// A text argument of a test double as it is recorded.
inline std::string text_or_null(const char* text) { return text == nullptr ? "null" : text; }

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_TEXT_OR_NULL_H_
