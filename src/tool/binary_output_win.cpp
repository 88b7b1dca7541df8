#include <cstdio>
#include <fcntl.h>
#include <io.h>
#include <iostream>
#include <stdexcept>

#include "tool/binary_output.h"

namespace Kes::tool {

void print_bytes(const std::string& bytes) {
    std::cout.flush();
    ::_setmode(::_fileno(stdout), _O_BINARY);
    std::cout << bytes << std::flush;
    if (!std::cout) throw std::runtime_error("cannot write to standard output");
}

} // namespace Kes::tool
