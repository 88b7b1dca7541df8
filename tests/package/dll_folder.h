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

/// A folder that contains only the DLL, libcrypto and a client. The client runs with a different current
/// folder, and with only the system folder in PATH.
class DllFolder : public ::testing::Test {
protected:
    DllFolder();

    /// Copies a file of the build into a folder.
    static void put(const std::filesystem::path& file, const std::filesystem::path& folder);
    static void put_as(const std::filesystem::path& file, const std::filesystem::path& target);
    static void put_text_file(const std::filesystem::path& target);

    /// Moves the client to another folder, away from the DLL.
    void move_client_to(const std::filesystem::path& folder);

    /// Creates a folder next to the DLL's folder.
    std::filesystem::path make_folder(const std::string& name) const;

    /// Runs the client. @return its output, after its exit code if that is not 0
    std::string run(const Lines& commands) const;

    /// Runs another program, whose only argument is the output file.
    std::string run_other(const std::filesystem::path& program) const;

    /// The error lines in the client's log.
    Lines logged_errors() const;

    static const std::filesystem::path bin;     ///< the build's programs and DLLs
    static const std::filesystem::path wrong;   ///< wrong files, which tests put in place of right ones
    static const std::filesystem::path doubles; ///< test doubles of libp11, its engine and a module

    TempDir dir;
    const std::filesystem::path folder = make_folder("dll");
    const std::filesystem::path current = make_folder("current");
    const std::string log_setting = "log=" + dir.file("log");
    std::string path_variable; ///< folders in PATH before the system folder

private:
    std::string run_to_end(const std::filesystem::path& program, const std::string& arguments) const;

    std::filesystem::path client_ = folder / "dll_client.exe";
};

} // namespace Kes::test

#endif // KES_TESTS_PACKAGE_DLL_FOLDER_H_
