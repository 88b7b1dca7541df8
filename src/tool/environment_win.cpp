#include <cstdlib>
#include <stdexcept>

#include "tool/environment.h"

namespace Kes::tool {

void set_variable(const std::string& name, const std::string& value) {
    if (::_putenv_s(name.c_str(), value.c_str()) != 0)
        throw std::runtime_error("cannot set the environment variable " + name);
}

} // namespace Kes::tool
