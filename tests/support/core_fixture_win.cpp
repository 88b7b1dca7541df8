#include "core_fixture.h"
#include "library_words_win.h"

namespace Kes::test {

std::string words_on_missing(const std::string& file) {
    return "\n" + queue_line("error loading '" + file + "': " + windows_code_text(ERROR_MOD_NOT_FOUND));
}

} // namespace Kes::test
