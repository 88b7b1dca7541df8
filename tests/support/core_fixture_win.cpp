#include "core_fixture.h"
#include "utils/windows_api.h"
#include "windows_error.h"

namespace Kes::test {

std::string missing_file_detail(const std::string& file) {
    return "\n" + queue_line("error loading '" + file + "': " + windows_error(ERROR_MOD_NOT_FOUND));
}

} // namespace Kes::test
