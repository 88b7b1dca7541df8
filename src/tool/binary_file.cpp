#include "tool/binary_file.h"

#include <algorithm>
#include <array>

#include "utils/library_kind.h"

namespace Kes::tool {
namespace {

constexpr LibraryKind provider_kind{"OSSL_provider_init", "an OpenSSL provider"};

bool is_of(const BinaryFile& file, const LibraryKind& kind) { return file.exports(kind.function); }

/// Adds the libraries that the file needs, unless the list contains them.
void add_needed(std::vector<Dependency>& list, const BinaryFile& file, const FindDependency& find) {
    for (const std::string& name : file.needed) {
        const auto has_name = [&name](const Dependency& known) { return known.name == name; };
        if (std::none_of(list.begin(), list.end(), has_name)) list.push_back({name, find(name), file.path});
    }
}

std::vector<Dependency> read_dependencies(const BinaryFile& file, const FindDependency& find) {
    std::vector<Dependency> list;
    add_needed(list, file, find);
    for (std::size_t i = 0; i < list.size(); ++i) // the list grows
        if (!list[i].path.empty()) add_needed(list, read_binary_file(list[i].path), find);
    return list;
}

} // namespace

bool BinaryFile::is_engine() const { return is_of(*this, engine_kind); }
bool BinaryFile::is_module() const { return is_of(*this, module_kind); }
bool BinaryFile::is_provider() const { return is_of(*this, provider_kind); }

std::string BinaryFile::kind() const {
    std::string text;
    for (const LibraryKind& kind : std::array{engine_kind, module_kind, provider_kind})
        if (is_of(*this, kind)) text += (text.empty() ? "" : " and ") + std::string(kind.name);
    return text.empty() ? "a library of another kind" : text;
}

std::optional<Dependency> BinaryFile::missing() const {
    const auto found = std::find_if(dependencies.begin(), dependencies.end(),
                                    [](const Dependency& dependency) { return dependency.path.empty(); });
    return found == dependencies.end() ? std::nullopt : std::optional(*found);
}

std::optional<Dependency> BinaryFile::libcrypto() const {
    const auto is_own = [this](const Dependency& dependency) {
        return dependency.needed_by == path && dependency.name.starts_with("libcrypto");
    };
    const auto found = std::find_if(dependencies.begin(), dependencies.end(), is_own);
    return found == dependencies.end() ? std::nullopt : std::optional(*found);
}

BinaryFile inspect_file(const std::string& path) {
    BinaryFile file = read_binary_file(path);
    if (file.format != BinaryFormat::library) return file;
    const FindDependency find = dependencies_of(file);
    if (!find) return {path, BinaryFormat::no_library, {}, {}, {}, ""};
    file.dependencies = read_dependencies(file, find);
    return file;
}

} // namespace Kes::tool
