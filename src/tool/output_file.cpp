#include "tool/output_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>

namespace Kes::tool {
namespace {

using FilePtr = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

FilePtr open_file(const std::string& name, const char* mode) {
    FilePtr file(std::fopen(name.c_str(), mode), &std::fclose);
    if (!file && errno == EEXIST)
        throw std::runtime_error("the file " + name + " exists; --force overwrites it");
    if (!file) throw std::runtime_error("cannot create the file " + name + ": " + std::strerror(errno));
    return file;
}

// "x" fails if the file exists, also if another program creates it at the same time.
constexpr const char* only_new = "wbx";

} // namespace

void check_file(const std::string& name, bool may_overwrite) {
    std::error_code ignored; // open_file() reports what prevents the access
    const std::filesystem::file_status status = std::filesystem::status(name, ignored);
    if (may_overwrite && std::filesystem::is_other(status))
        return; // such as a pipe, whose reader would notice the check
    open_file(name, may_overwrite ? "ab" : only_new);
    if (!std::filesystem::exists(status)) std::filesystem::remove(name, ignored);
}

void write_file(const std::string& name, const std::string& bytes, bool may_overwrite) {
    FilePtr file = open_file(name, may_overwrite ? "wb" : only_new);
    const bool is_written = std::fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size();
    if (std::fclose(file.release()) == 0 && is_written) return;
    const std::string reason = std::strerror(errno);
    std::error_code ignored;
    if (std::filesystem::is_regular_file(name, ignored)) std::filesystem::remove(name, ignored);
    throw std::runtime_error("cannot write the file " + name + ": " + reason);
}

} // namespace Kes::tool
