#ifndef KES_TESTS_PACKAGE_DLL_FOLDER_H_
#define KES_TESTS_PACKAGE_DLL_FOLDER_H_

#include <filesystem>
#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "support/error_lines.h"
#include "support/support.h"
#include "support/windows_error.h"

namespace Kes::test {

/// A folder that holds the DLL, libcrypto and a client, and nothing else. The client is started with another
/// folder as its current one and with nothing but the system's folder in PATH.
class DllFolder : public ::testing::Test {
protected:
    DllFolder();

    /// Takes one of the build's files into a folder.
    static void put(const std::filesystem::path& file, const std::filesystem::path& folder);
    static void put_as(const std::filesystem::path& file, const std::filesystem::path& target);
    static void put_text_file(const std::filesystem::path& target);

    /// Moves the client away from the DLL.
    void move_client_to(const std::filesystem::path& folder);

    /// Makes a folder beside the DLL's.
    std::filesystem::path make_folder(const std::string& name) const;

    /// Runs the client. @return what it wrote, whole; what went wrong when it did not end well
    std::string run(const Lines& commands) const;

    /// The same for another program, which takes the file to write to alone.
    std::string run_other(const std::filesystem::path& program) const;

    /// Errors in the client's log.
    Lines logged_errors() const;

    static const std::filesystem::path bin;     ///< the build's programs and DLLs
    static const std::filesystem::path wrong;   ///< files for the wrong places
    static const std::filesystem::path doubles; ///< test doubles of libp11, its engine and a module

    TempDir dir;
    const std::filesystem::path folder = make_folder("dll");
    const std::filesystem::path current = make_folder("current");
    const std::string log_setting = "log=" + dir.file("log");
    std::string path_variable; ///< besides the system's folder

private:
    std::string run_to_end(const std::filesystem::path& program, const std::string& arguments) const;

    std::filesystem::path client_ = folder / "dll_client.exe";
};

} // namespace Kes::test

#endif // KES_TESTS_PACKAGE_DLL_FOLDER_H_
