#ifndef KES_TOOL_LIBP11_VERSION_H_
#define KES_TOOL_LIBP11_VERSION_H_

#include <span>
#include <string>

#include "tool/binary_file.h"
#include "tool/doctor/finding.h"

namespace Kes::tool {

/// What a library file tells about the version of libp11 that it is, or, for libp11's engine, that it contains.
struct Libp11Version {
    enum class Known { nothing, exactly, at_least, earlier };

    Known known = Known::nothing;
    std::string number;      ///< such as "0.4.12"; with Known::earlier, the first version that it is not
    const char* source = ""; ///< "version resource", "file name" or "exports"

    std::string text() const; ///< such as "0.4.13 or later"
};

Libp11Version read_libp11_version(const BinaryFile& file);

/// The version that the file states apart from its exports. libp11_version_posix.cpp and
/// libp11_version_win.cpp implement this function and this_system().
Libp11Version read_stated_version(const BinaryFile& file);

/// What the project knows about a version of libp11 on a system. docs/libp11.md contains the same table, which
/// a test compares.
struct Libp11Experience {
    enum class System { any, linux_like, windows };

    const char* version; ///< in the first row of the table: this version and all earlier ones
    System system;
    const char* limits;
    const char* recommendation;
    State state; ///< of a line about this version
};

/// The system whose rows of the table apply.
Libp11Experience::System this_system();

/// In the order of the document.
std::span<const Libp11Experience> libp11_table();

/// The line of doctor about the version of libp11 in a file.
/// @param link  Link::library for libp11 itself, Link::engine for its engine
Finding judge_libp11(const BinaryFile& file, Link link);

} // namespace Kes::tool

#endif // KES_TOOL_LIBP11_VERSION_H_
