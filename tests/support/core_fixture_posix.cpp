#include "core_fixture.h"

namespace Kes::test {

std::string words_on_missing(const std::string&) { return ""; }

} // namespace Kes::test
