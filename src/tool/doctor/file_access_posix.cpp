#include "tool/doctor/file_access.h"

#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace Kes::tool {
namespace {

/// In a folder with the sticky bit, users can replace only files of their own.
bool is_writable_by_others(const std::filesystem::path& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return false;
    if (status.st_uid != 0 && status.st_uid != ::geteuid()) return true;
    const bool is_sticky = S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0;
    return (status.st_mode & S_IWOTH) != 0 && !is_sticky;
}

} // namespace

bool can_write_file(const std::string& file) { return ::access(file.c_str(), W_OK) == 0; }

bool can_create_files(const std::string& folder) { return ::access(folder.c_str(), W_OK | X_OK) == 0; }

std::string writable_by_others(const std::string& path) {
    std::filesystem::path current = path;
    for (;;) {
        if (is_writable_by_others(current)) return current.string();
        const std::filesystem::path folder = current.parent_path();
        if (folder == current) return "";
        current = folder;
    }
}

} // namespace Kes::tool
