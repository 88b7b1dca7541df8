#include "control_files.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "token_files.h"

namespace Kes::test {
namespace {

namespace fs = std::filesystem;

} // namespace

fs::path tokens_folder() {
    const char* folder = std::getenv("MARVO_TEST_TOKENS");
    return folder == nullptr ? "" : folder;
}

std::vector<std::string> reader_names() {
    std::vector<std::string> names;
    std::error_code none;
    for (const fs::directory_entry& entry : fs::directory_iterator(tokens_folder(), none))
        if (entry.is_directory()) names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

CK_RV planned_failure(const std::string& function, CallNumber number) {
    const std::string numbered = function + "#" + std::to_string(number.of_function);
    const std::string position = std::to_string(number.of_all);
    for (const auto& [name, code] : read_settings(tokens_folder() / "fail"))
        if (name == function || name == numbered || name == position) return number_of(code);
    return CKR_OK;
}

void record_call(const std::string& function, CallNumber number, CK_RV result) {
    const fs::path file = tokens_folder() / "calls";
    if (!fs::exists(file)) return;
    std::ostringstream line;
    line << number.of_all << ' ' << function << '#' << number.of_function << " 0x" << std::hex << result
         << '\n';
    std::ofstream(file, std::ios::app) << line.str();
}

} // namespace Kes::test
