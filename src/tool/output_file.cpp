#include "tool/output_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace Kes::tool {

void write_file(const std::string& name, const std::string& bytes, bool may_overwrite) {
    // "x" fails if the file exists, also if another program creates it at the same time.
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(
        std::fopen(name.c_str(), may_overwrite ? "wb" : "wbx"), &std::fclose);
    if (!file && errno == EEXIST)
        throw std::runtime_error("the file " + name + " exists; --force overwrites it");
    if (!file) throw std::runtime_error("cannot create the file " + name + ": " + std::strerror(errno));
    const bool is_written = std::fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size();
    if (std::fclose(file.release()) != 0 || !is_written)
        throw std::runtime_error("cannot write the file " + name + ": " + std::strerror(errno));
}

} // namespace Kes::tool
