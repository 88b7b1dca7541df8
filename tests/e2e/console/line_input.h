#ifndef KES_TESTS_E2E_CONSOLE_LINE_INPUT_H_
#define KES_TESTS_E2E_CONSOLE_LINE_INPUT_H_

namespace Kes::test {

/// Whether the terminal delivers its input line by line, as it does when a program starts. True also if
/// standard input is not a terminal.
bool has_line_input();

} // namespace Kes::test

#endif // KES_TESTS_E2E_CONSOLE_LINE_INPUT_H_
