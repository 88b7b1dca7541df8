#ifndef KES_TOOL_DOCTOR_LIBP11_VERSIONS_H_
#define KES_TOOL_DOCTOR_LIBP11_VERSIONS_H_

#include <span>
#include <string>

#include "tool/doctor/finding.h"

/// What is known about the versions of libp11. The table is the one of docs/libp11.md.
namespace Kes::tool {

struct Libp11Version {
    const char* version;
    const char* system; ///< the first word of the column "system": "Linux" or "Windows"
    const char* limits; ///< without links
    const char* recommendation;
};

/// The rows of the table for single versions.
std::span<const Libp11Version> libp11_versions();

/// The line of the report about a version.
/// @param version  such as "0.4.12"; empty if it is not known
/// @param file     the path of libp11
Finding judge_libp11(const std::string& version, const std::string& system, const std::string& file);

/// The version of a file, which libp11 has no function for: from its version resource, or else from the
/// number in the name of the file; "" if neither tells it.
std::string read_libp11_version(const std::string& file);

} // namespace Kes::tool

#endif // KES_TOOL_DOCTOR_LIBP11_VERSIONS_H_
