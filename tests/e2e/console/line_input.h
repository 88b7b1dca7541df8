#ifndef KES_TESTS_E2E_CONSOLE_LINE_INPUT_H_
#define KES_TESTS_E2E_CONSOLE_LINE_INPUT_H_

namespace Kes::test {

/// Whether the terminal is as a program finds it at its start, with input line by line; also when there is
/// none.
bool has_line_input();

} // namespace Kes::test

#endif // KES_TESTS_E2E_CONSOLE_LINE_INPUT_H_
