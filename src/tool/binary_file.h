#ifndef KES_TOOL_BINARY_FILE_H_
#define KES_TOOL_BINARY_FILE_H_

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Kes::tool {

/// Where the system's loader finds a library, without loading it.
/// @param name  as it is passed to the loader: a path, or a name without a folder, which the loader searches
/// @return the absolute path; "" if there is no such file
/// @throws std::runtime_error if the loader cannot be asked
std::string find_library(const std::string& name);

/// What a file is for this program.
enum class BinaryFormat {
    library,         ///< a shared library that this process could load
    bits_32,         ///< a shared library for 32 bits
    other_processor, ///< a shared library for another processor with 64 bits
    no_library,      ///< anything else, also a folder, an empty file or a damaged library
};

/// A library that another one needs, directly or not.
struct Dependency {
    std::string name;      ///< as the file that needs it calls it, such as "libcrypto.so.3"
    std::string path;      ///< where the loader finds it; "" if it does not
    std::string needed_by; ///< the path of the first file that needs it
};

/// Facts about a file that may be a shared library. No code of the file has run.
struct BinaryFile {
    std::string path;
    BinaryFormat format = BinaryFormat::no_library;

    // The other members are empty if the process cannot load the file.
    std::set<std::string> functions;      ///< the names that it exports
    std::vector<std::string> needed;      ///< the libraries that the file itself needs
    std::vector<Dependency> dependencies; ///< these, and those that they need, in the order of the search
    std::string version;                  ///< "1.2.3.4" of its version resource; "" on Linux or without one

    bool exports(const std::string& function) const { return functions.contains(function); }
    bool is_engine() const;
    bool is_module() const;
    bool is_provider() const;

    /// What the file is, as messages call it: "an OpenSSL engine", "a PKCS#11 module", "an OpenSSL provider",
    /// several of these, or "a library of another kind".
    std::string kind() const;

    /// The first library that the loader does not find.
    std::optional<Dependency> missing() const;

    /// The libcrypto that the file itself needs.
    std::optional<Dependency> libcrypto() const;
};

/// Reads the facts about a file, and about the libraries that it needs.
/// @param path  an absolute path
/// @throws std::runtime_error if the file cannot be read
BinaryFile inspect_file(const std::string& path);

/// The parts of inspect_file() that binary_file_posix.cpp and binary_file_win.cpp implement.

/// Reads everything except the dependencies from the file alone.
/// @throws std::runtime_error if the file cannot be read
BinaryFile read_binary_file(const std::string& path);

/// Finds a library by the name that a dependent file gives it. Returns "" if the loader does not find it.
using FindDependency = std::function<std::string(const std::string& name)>;

/// How the loader would find the dependencies of this file. Returns no function if the loader rejects the
/// file itself.
FindDependency dependencies_of(const BinaryFile& file);

} // namespace Kes::tool

#endif // KES_TOOL_BINARY_FILE_H_
