#ifndef KES_TOOL_LOADER_POSIX_H_
#define KES_TOOL_LOADER_POSIX_H_

#include <map>
#include <string>

/// Questions to the system's loader. It runs as a process of its own that maps the files but runs none of
/// their code, so that the answers follow its own rules: LD_LIBRARY_PATH, its cache, and the paths inside the
/// files.
namespace Kes::tool {

/// The loader of this process.
std::string loader_path();

/// Where the loader finds a library for a name without a folder; "" if it does not.
/// @throws std::runtime_error if the loader cannot be started, or cannot search for such a name
std::string ask_loader_for_path(const std::string& name);

/// The paths of all libraries that a file needs, by their names; "" for those that the loader does not find.
/// Empty if the loader rejects the file.
/// @throws std::runtime_error if the loader cannot be started
std::map<std::string, std::string> ask_loader_for_dependencies(const std::string& path);

} // namespace Kes::tool

#endif // KES_TOOL_LOADER_POSIX_H_
