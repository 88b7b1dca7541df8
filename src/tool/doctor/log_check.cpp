#include <filesystem>
#include <string>

#include "tool/doctor/checks.h"
#include "tool/doctor/file_access.h"

namespace Kes::tool {
namespace {

Finding error(const std::string& text) {
    return {State::error, Link::client, "log file", text,
            "Set logfile to a path in a folder in which the user of the client may write"};
}

} // namespace

Findings check_log(Context& context) {
    const std::string name = context.settings().get_logfile();
    if (name == " ") return {{State::note, Link::client, "log file", "the log is turned off", ""}};
    const std::filesystem::path file = std::filesystem::absolute(name);
    const std::filesystem::path folder = file.parent_path();
    if (!std::filesystem::exists(folder)) return {error("the folder " + folder.string() + " does not exist")};
    if (!std::filesystem::is_directory(folder)) return {error(folder.string() + " is no folder")};
    if (std::filesystem::is_directory(file)) return {error(file.string() + " is a folder")};
    const bool exists = std::filesystem::exists(file);
    if (exists && !can_write_file(file.string()))
        return {error("this user may not write to the file " + file.string())};
    if (!exists && !can_create_files(folder.string()))
        return {error("this user may not create files in the folder " + folder.string())};
    return {{State::ok, Link::client, "log file", file.string() + " can be written", ""}};
}

} // namespace Kes::tool
