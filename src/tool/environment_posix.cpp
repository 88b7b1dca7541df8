#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include <unistd.h>

#include "tool/environment.h"

namespace Kes::tool {

void set_variable(const std::string& name, const std::string& value) {
    if (::setenv(name.c_str(), value.c_str(), 1) != 0)
        throw std::runtime_error("cannot set the environment variable " + name + ": " + std::strerror(errno));
}

Variables list_variables() {
    Variables variables;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const std::size_t equals = text.find('=');
        if (equals != std::string::npos)
            variables.emplace_back(text.substr(0, equals), text.substr(equals + 1));
    }
    return variables;
}

bool is_same_variable(const std::string& first, const std::string& second) { return first == second; }

} // namespace Kes::tool
