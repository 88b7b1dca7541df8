#include "core_fixture.h"

namespace Kes::test {

std::string missing_file_detail(const std::string&) { return ""; }

} // namespace Kes::test
