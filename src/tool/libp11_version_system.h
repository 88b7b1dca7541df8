#ifndef KES_TOOL_LIBP11_VERSION_SYSTEM_H_
#define KES_TOOL_LIBP11_VERSION_SYSTEM_H_

#include "tool/libp11_version.h"

/// What libp11_version_posix.cpp and libp11_version_win.cpp implement for libp11_version.cpp.
namespace Kes::tool {

/// The version that the file states apart from its exports.
Libp11Version read_stated_version(const BinaryFile& file);

/// The system whose rows of the table apply.
Libp11Experience::System this_system();

} // namespace Kes::tool

#endif // KES_TOOL_LIBP11_VERSION_SYSTEM_H_
