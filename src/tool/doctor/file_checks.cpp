#include <filesystem>
#include <stdexcept>
#include <string>

#include "base/env_settings.h"
#include "tool/binary_file.h"
#include "tool/doctor/checks.h"
#include "tool/doctor/file_access.h"
#include "tool/libp11_version.h"
#include "utils/helper.h"
#include "utils/library_kind.h"

namespace Kes::tool {
namespace {

/// A library that a setting names.
struct NamedFile {
    Link link;
    std::string check;       ///< the name of the lines
    std::string setting;     ///< such as "pkcs11_module_dll"
    std::string value;       ///< of the setting
    std::string loaded_name; ///< what the system's loader receives
    LibraryKind kind;
};

Finding make(const NamedFile& file, State state, const std::string& finding, const std::string& remedy) {
    return {state, file.link, file.check, finding, remedy};
}

std::string set_to_path(const NamedFile& file, const char* of_what) {
    return "Set " + file.setting + " to the full path of " + of_what;
}

/// An option is a variable of this process, so without a variable the default is in effect.
std::string hint_for(const NamedFile& file) {
    const bool is_default = Helper::get_env(env_prefix + file.setting).empty();
    return is_default ? hint_of_command_env(file.setting) : "";
}

/// How the name leads to the file, if it is no full path.
Findings check_name(const NamedFile& file, const std::string& path) {
    const std::filesystem::path name = file.value;
    if (name.is_absolute()) return {};
    const std::string how =
        name.has_parent_path()
            ? " is a relative path, so that another current folder may lead to another file"
            : " has no folder, so that the loader searches for it";
    return {make(file, State::warning,
                 file.setting + "=" + file.value + how + "; here it is " + (path.empty() ? "no file" : path),
                 set_to_path(file, "the file"))};
}

/// Why the loader cannot use the file; a finding without text if it can.
Finding check_content(const NamedFile& file, const BinaryFile& binary) {
    const std::string wanted = file.kind.name;
    const auto error = [&](const std::string& text, const std::string& remedy) {
        return make(file, State::error, binary.path + text, remedy);
    };
    if (binary.format == BinaryFormat::bits_32)
        return error(" is a library for 32 bits, but this program has 64",
                     set_to_path(file, "one for 64 bits"));
    if (binary.format == BinaryFormat::other_processor)
        return error(" is a library for another processor", set_to_path(file, "one for this processor"));
    if (binary.format == BinaryFormat::no_library)
        return error(" is no library", set_to_path(file, wanted.c_str()));
    if (const auto missing = binary.missing())
        return error(" cannot be loaded: " + missing->needed_by + " needs " + missing->name +
                         ", which the loader does not find",
                     "Install " + missing->name + ", or put its folder into the search path of the loader");
    if (!binary.exports(file.kind.function))
        return error(" is " + binary.kind() + ", not " + wanted,
                     "Set " + file.setting + " to " + wanted +
                         "; check that the paths of engine and module are not swapped");
    return make(file, State::ok, "", "");
}

/// A library of a module that also is the one of this program shares its settings and engines.
Findings check_libcrypto_of(const NamedFile& file, const BinaryFile& binary) {
    const auto libcrypto = binary.libcrypto();
    if (!libcrypto || file.link != Link::module) return {};
    return {
        make(file, State::note,
             binary.path + " uses OpenSSL itself (" + libcrypto->path +
                 "): while the library's engine is the default, its own calls of OpenSSL go to that engine",
             "If handshakes fail with 'Host memory error', let the client take the engine out of OpenSSL's "
             "defaults after ossl_load()")};
}

/// The engine contains a copy of libp11, whose version decides about its limits.
Findings check_version(const NamedFile& file, const BinaryFile& binary) {
    if (file.setting != "pkcs11_openssl_engine_dll" || !binary.is_engine()) return {};
    return {judge_libp11(binary, Link::engine)};
}

Findings check_access(const NamedFile& file, const std::string& path) {
    const std::string open = writable_by_others(path);
    if (open.empty()) return {};
    return {make(file, State::warning,
                 "other users can change " + open + ", and so the code that runs with access to the PIN",
                 "Take the right to write to it from them")};
}

Finding no_file(const NamedFile& file, const std::string& reason) {
    return make(file, State::error, file.setting + "=" + file.value + ": " + reason,
                set_to_path(file, file.kind.name) + hint_for(file));
}

Findings check_found_file(const NamedFile& file, const std::string& path) {
    Findings findings = check_name(file, path);
    if (path.empty()) {
        findings.push_back(no_file(file, "there is no such file"));
        return findings;
    }
    const BinaryFile binary = inspect_file(path);
    Finding content = check_content(file, binary);
    if (content.state == State::ok) content.finding = path + " is " + file.kind.name + " for 64 bits";
    findings.push_back(content);
    for (const Findings& more :
         {check_version(file, binary), check_libcrypto_of(file, binary), check_access(file, path)})
        findings.insert(findings.end(), more.begin(), more.end());
    return findings;
}

Findings check_file(const NamedFile& file) {
    std::string path;
    try {
        path = find_library(file.loaded_name);
    } catch (const std::runtime_error& error) {
        return {no_file(file, error.what())};
    }
    return check_found_file(file, path);
}

} // namespace

Findings check_engine_file(Context& context) {
    const std::string value = context.engine_path();
    return check_file({Link::engine, "engine file",
                       crypto_if_name(context.crypto_if()) + "_openssl_engine_dll", value,
                       engine_file_name(value), engine_kind});
}

Findings check_module_file(Context& context) {
    if (context.crypto_if() != OsslScardCfg::pkcs11) return {};
    const std::string value = context.settings().get_pkcs11_module_dll();
    return check_file({Link::module, "module file", "pkcs11_module_dll", value, value, module_kind});
}

} // namespace Kes::tool
