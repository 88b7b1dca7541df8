#include "json_schema.h"

#include <fstream>

#include "support/process.h"
#include "support/support.h"

namespace Kes::test {

std::string schema_violations(const std::string& command, const std::string& output) {
    const TempDir dir;
    std::ofstream(dir.file("json")) << output;
    Process process({"/bin/sh", "-c", R"(exec "$0" "$1" <"$2")", MARVO_VALIDATE_JSON,
                     std::string(MARVO_SCHEMAS) + "/" + command + ".json", dir.file("json")},
                    dir.file("violations"));
    const int status = process.wait();
    const std::string violations = read_file(dir.file("violations"));
    return status == 0 || !violations.empty() ? violations : "status " + std::to_string(status);
}

} // namespace Kes::test
