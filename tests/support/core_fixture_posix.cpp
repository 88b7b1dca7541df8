#include "core_fixture.h"

namespace Kes::test {

std::string missing_module_detail(const std::string& file) {
    return "\n" + queue_line(file + ": cannot open shared object file: No such file or directory");
}

std::string missing_engine_detail(const std::string&) { return ""; } // OpenSSL reports the loader's message

} // namespace Kes::test
