#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "tool/environment.h"

namespace Kes::tool {

void set_variable(const std::string& name, const std::string& value) {
    if (::_putenv_s(name.c_str(), value.c_str()) != 0)
        throw std::runtime_error("cannot set the environment variable " + name);
}

Variables list_variables() {
    Variables variables;
    for (char** entry = _environ; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const std::size_t equals = text.find('=', 1); // names such as "=C:" begin with "="
        if (equals != std::string::npos)
            variables.emplace_back(text.substr(0, equals), text.substr(equals + 1));
    }
    return variables;
}

bool is_same_variable(const std::string& first, const std::string& second) {
    return ::_stricmp(first.c_str(), second.c_str()) == 0;
}

} // namespace Kes::tool
