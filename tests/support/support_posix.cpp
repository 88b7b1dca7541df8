#include "support_system.h"

#include <cstdlib>
#include <stdexcept>

namespace Kes::test {

std::filesystem::path make_temp_dir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "marvo-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder can be made");
    return pattern;
}

void set_env(const std::string& name, const std::optional<std::string>& value) {
    if (value)
        ::setenv(name.c_str(), value->c_str(), 1);
    else
        ::unsetenv(name.c_str());
}

} // namespace Kes::test
