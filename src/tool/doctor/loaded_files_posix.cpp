#include "tool/doctor/loaded_files.h"

#include <dlfcn.h>
#include <link.h>
#include <openssl/crypto.h>

#include "tool/loader_posix.h"

namespace Kes::tool {
namespace {

std::string file_of(const void* function) {
    Dl_info info{};
    return ::dladdr(function, &info) != 0 ? info.dli_fname : "";
}

} // namespace

std::vector<std::string> loaded_files() {
    std::vector<std::string> files;
    const auto add = [](dl_phdr_info* info, std::size_t, void* list) {
        if (*info->dlpi_name != '\0')
            static_cast<std::vector<std::string>*>(list)->emplace_back(info->dlpi_name);
        return 0;
    };
    ::dl_iterate_phdr(add, &files);
    return files;
}

std::string libcrypto_in_use() { return file_of(reinterpret_cast<const void*>(&::OpenSSL_version)); }

std::string libp11_in_use() { return ask_loader_for_path("libp11.so.3"); }

} // namespace Kes::tool
