#include "line_input.h"

#include <windows.h>

namespace Kes::test {

bool has_line_input() {
    DWORD mode = 0;
    const DWORD usual = ENABLE_LINE_INPUT | ENABLE_ECHO_INPUT;
    return ::GetConsoleMode(::GetStdHandle(STD_INPUT_HANDLE), &mode) == FALSE || (mode & usual) == usual;
}

} // namespace Kes::test
