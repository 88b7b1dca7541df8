#include "core_fixture.h"
#include "utils/windows_api.h"
#include "windows_error.h"

namespace Kes::test {

std::string missing_module_detail(const std::string& file) {
    return "\n" + queue_line("error loading '" + file + "': " + windows_error(ERROR_MOD_NOT_FOUND));
}

std::string missing_engine_detail(const std::string& file) { return missing_module_detail(file); }

} // namespace Kes::test
