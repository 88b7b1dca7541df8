#include "line_input.h"

#include <termios.h>
#include <unistd.h>

namespace Kes::test {

bool has_line_input() {
    termios now{};
    return ::tcgetattr(STDIN_FILENO, &now) != 0 || (now.c_lflag & ICANON) != 0;
}

} // namespace Kes::test
