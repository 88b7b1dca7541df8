#include <iostream>

#include "tool/binary_output.h"

namespace Kes::tool {

void print_bytes(const std::string& bytes) { std::cout << bytes << std::flush; }

} // namespace Kes::tool
