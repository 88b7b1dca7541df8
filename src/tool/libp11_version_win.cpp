#include "tool/libp11_version.h"

namespace Kes::tool {

Libp11Version read_stated_version(const BinaryFile& file) {
    // All versions start with 0. Another number is that of the interface, or of another library.
    if (!file.version.starts_with("0.")) return {};
    const std::string number = file.version.substr(0, file.version.rfind('.')); // three of the four parts
    return {Libp11Version::Known::exactly, number, "version resource"};
}

Libp11Experience::System this_system() { return Libp11Experience::System::windows; }

} // namespace Kes::tool
