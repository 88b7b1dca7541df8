#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "tool/environment.h"

namespace Kes::tool {

void set_variable(const std::string& name, const std::string& value) {
    if (::setenv(name.c_str(), value.c_str(), 1) != 0)
        throw std::runtime_error("cannot set the environment variable " + name + ": " + std::strerror(errno));
}

} // namespace Kes::tool
