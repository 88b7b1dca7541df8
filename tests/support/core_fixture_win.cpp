#include "core_fixture.h"
#include "utils/windows_api.h"
#include "windows_error.h"

namespace Kes::test {

std::string missing_module_detail(const std::string& file) {
    const bool is_bare = file.find_first_of("/\\:") == std::string::npos;
    return "\n" + queue_line("error loading '" + file + "'" + (is_bare ? searched_folders : "") + ": " +
                             windows_error(ERROR_MOD_NOT_FOUND));
}

std::string missing_engine_detail(const std::string& file) { return missing_module_detail(file); }

} // namespace Kes::test
