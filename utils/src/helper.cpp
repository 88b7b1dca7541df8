#include "utils/helper.h"

#include <fstream>

#include "utils/error.h"
#include "utils/logger.h"
#include "utils/platform.h"

namespace Kes {

void Helper::write_file(const std::string& file_name, const std::vector<unsigned char>& bytes) {
    std::ofstream file(file_name, std::ios::out | std::ios::trunc | std::ios::binary);
    if (!file.is_open())
        throw Error(ErrorCodeType::open_failed, "error opening file: '" + file_name + "'",
                    "helper:329 Kes::Helper::write_file()");
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    log_debug("wrote data to: '", file_name, "'");
}

std::string Helper::get_env(const std::string& name) { return platform::env_value(name.c_str()); }

} // namespace Kes
