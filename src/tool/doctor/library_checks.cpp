#include <set>
#include <string>

#include "pkcs11/libp11_library.h"
#include "tool/doctor/checks.h"
#include "tool/doctor/loaded_files.h"
#include "tool/libp11_version.h"
#include "utils/error.h"

namespace Kes::tool {
namespace {

/// The name of a file without its folder.
std::string file_name(const std::string& path) { return path.substr(path.find_last_of("/\\") + 1); }

} // namespace

Findings check_libp11(Context& context) {
    if (context.crypto_if() != OsslScardCfg::pkcs11) return {};
    try {
        require_libp11();
    } catch (const ErrorBase& error) {
        return {{State::error, Link::library, "libp11", one_line(error.what()),
                 "Install libp11 0.4.12 or later, with the engine of the same version"}};
    }
    const std::string file = libp11_in_use();
    return {{State::ok, Link::library, "libp11", file + " can be loaded", ""},
            judge_libp11(inspect_file(file), Link::library)};
}

Findings check_libcrypto(Context&) {
    std::set<std::string> files;
    for (const std::string& path : loaded_files())
        if (file_name(path).starts_with("libcrypto")) files.insert(path);
    if (files.size() <= 1)
        return {{State::ok, Link::library, "libcrypto", "all use " + libcrypto_in_use(), ""}};
    std::string text;
    for (const std::string& file : files)
        text += (text.empty() ? "" : " and ") + file;
    return {{State::error, Link::library, "libcrypto", "this process uses more than one: " + text,
             "Use engine, libp11 and module with one libcrypto: keys of one cannot be used by the other"}};
}

} // namespace Kes::tool
