#include <array>
#include <filesystem>

#include "tool/libp11_version.h"

namespace Kes::tool {
namespace {

struct NamedVersion {
    const char* file_name;
    const char* version;
};

// The files of Debian's packages. The number in the name is that of the interface, not the version, so that
// other names say nothing certain.
constexpr std::array<NamedVersion, 4> named_versions{{
    {"libp11.so.3.4.3", "0.4.11"},
    {"libp11.so.3.5.0", "0.4.12"},
    {"libp11.so.3.6.0", "0.4.13"},
    {"libp11.so.3.10.0", "0.4.21"},
}};

} // namespace

Libp11Version read_stated_version(const BinaryFile& file) {
    // The loader's name of the library is a link to the file.
    const std::string name = std::filesystem::canonical(file.path).filename().string();
    for (const NamedVersion& named : named_versions)
        if (name == named.file_name) return {Libp11Version::Known::exactly, named.version, "file name"};
    return {};
}

Libp11Experience::System this_system() { return Libp11Experience::System::linux_like; }

} // namespace Kes::tool
