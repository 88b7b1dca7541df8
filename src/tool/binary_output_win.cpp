#include <cstdio>
#include <fcntl.h>
#include <io.h>
#include <iostream>

#include "tool/binary_output.h"

namespace Kes::tool {

void print_bytes(const std::string& bytes) {
    std::cout.flush();
    ::_setmode(::_fileno(stdout), _O_BINARY);
    std::cout << bytes << std::flush;
}

} // namespace Kes::tool
