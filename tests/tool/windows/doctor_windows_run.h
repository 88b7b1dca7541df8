#ifndef KES_TESTS_TOOL_WINDOWS_DOCTOR_WINDOWS_RUN_H_
#define KES_TESTS_TOOL_WINDOWS_DOCTOR_WINDOWS_RUN_H_

#include <filesystem>
#include <gtest/gtest.h>
#include <list>

#include "support/child.h"
#include "support/test_card.h"
#include "utils/windows_api.h"

/// Runs of the command doctor under Windows.
namespace Kes::test {

namespace fs = std::filesystem;

/// A folder with the program and everything that it needs for the back-end pkcs11.
class DoctorWindowsTest : public testing::Test {
protected:
    DoctorWindowsTest() {
        fs::create_directory(folder_);
        for (const char* name : {"marvo.exe", "libcrypto-3-x64.dll", "libssl-3-x64.dll"})
            put(fs::path(MARVO_BIN_DIR) / name);
        for (const char* name : {"libp11.dll", "itp11.dll", "pkcs11.dll"})
            put(fs::path(MARVO_DOUBLES_DIR) / name);
        set("crypto_if", "pkcs11");
        set("pkcs11_module_dll", file("itp11.dll"));
        set("pkcs11_openssl_engine_dll", file("pkcs11.dll"));
        set("logfile", dir_.file("log"));
        card_.add("01", "ckp", "rsa", "Login");
    }

    /// A test may set a variable of the constructor again, so the last value must be taken back first.
    ~DoctorWindowsTest() override {
        while (!variables_.empty())
            variables_.pop_back();
    }

    void put(const fs::path& source) {
        fs::copy_file(source, folder_ / source.filename(), fs::copy_options::overwrite_existing);
    }

    std::string file(const std::string& name) const { return (folder_ / name).string(); }

    void set(const std::string& key, const std::string& value) {
        variables_.emplace_back("ossl_scard_cfg_" + key, value);
    }

    /// The output of doctor.
    Lines run(const std::string& arguments = "") const {
        const std::string output = dir_.file("output");
        const std::string command =
            "/c \"\"" + file("marvo.exe") + "\" doctor " + arguments + " > \"" + output + "\"\"";
        run_program(system_folder() / "cmd.exe", command, current_folder_);
        return split_lines(read_text(output));
    }

    /// The lines of doctor that begin with "error" or "warning". The warning about the version of the test
    /// double of libp11 is left out, and so are rights: Wine derives them from those of the system that it
    /// runs on.
    Lines mistakes(const std::string& arguments = "") const {
        Lines found = run(arguments);
        std::erase_if(found, [](const std::string& line) {
            return (!line.starts_with("error ") && !line.starts_with("warning ")) ||
                   line.starts_with("warning libp11 version: 0.4.12 according to its exports: ") ||
                   line.find(": other users can change ") != std::string::npos;
        });
        return found;
    }

    /// The lines of a check.
    Lines lines(const std::string& check, const std::string& arguments = "") const {
        Lines found = run(arguments);
        std::erase_if(found,
                      [&check](const std::string& line) { return line.find(" " + check + ": ") != 7; });
        return found;
    }

    static fs::path system_folder() {
        std::string folder(MAX_PATH, '\0');
        folder.resize(::GetSystemDirectoryA(folder.data(), MAX_PATH));
        return folder;
    }

    const TempDir dir_;
    const fs::path folder_ = (dir_.path() / "bin").make_preferred();
    fs::path current_folder_ = folder_; ///< of the program
    TestCard card_;

private:
    EnvVar path_{"PATH", system_folder().string()};
    std::list<EnvVar> variables_;
};

} // namespace Kes::test

#endif // KES_TESTS_TOOL_WINDOWS_DOCTOR_WINDOWS_RUN_H_
