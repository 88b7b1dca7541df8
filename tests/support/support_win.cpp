#include "support_system.h"

#include <cstdlib>
#include <stdexcept>

#include "utils/windows_api.h"

namespace Kes::test {

std::filesystem::path make_temp_dir() {
    static int count = 0;
    for (int attempt = 0; attempt < 100; ++attempt) {
        const std::string name =
            "marvo-test-" + std::to_string(::GetCurrentProcessId()) + "-" + std::to_string(++count);
        const std::filesystem::path path = std::filesystem::temp_directory_path() / name;
        if (std::filesystem::create_directory(path)) return path;
    }
    throw std::runtime_error("no temporary folder can be made");
}

// _putenv() changes the environment of both the C runtime and the system. An empty value unsets the variable.
void set_env(const std::string& name, const std::optional<std::string>& value) {
    ::_putenv((name + "=" + value.value_or("")).c_str());
}

} // namespace Kes::test
