// The command doctor with a libp11 that is missing, damaged or of a wrong version.
#include "doctor_run.h"

#include <filesystem>
#include <fstream>

namespace Kes::test {
namespace {

namespace fs = std::filesystem;

const std::string not_loaded = "error   libp11: libp11_library:78 Kes::require_libp11(): error loading '";
const std::string wrong_functions = "error   libp11: libp11_library:20 Kes::require_libp11(): '";
const std::string install = " Remedy: Install libp11 0.4.12 or later, with the engine of the same version.";

class DoctorLibp11Test : public DoctorTest {
protected:
    /// Makes the loader look for libraries in the folder of the test first.
    void search_own_folder() { set_variable("LD_LIBRARY_PATH", dir_.path().string()); }

    /// Gives the system's libp11 another file name, and lets the loader find it by its usual name.
    void rename_libp11(const std::string& name) {
        fs::copy_file(MARVO_LIBP11, dir_.file(name));
        fs::create_symlink(name, dir_.file("libp11.so.3"));
        search_own_folder();
    }
};

/// A copy of the program that looks for libp11.so.X, because no setting hides a library in the system's folders.
std::string copy_program_without_libp11(const TempDir& dir) {
    std::string program = read_file(MARVO_TOOL_PROGRAM);
    const std::string name = "libp11.so.3";
    std::size_t at = program.find(name);
    EXPECT_NE(at, std::string::npos);
    for (; at != std::string::npos; at = program.find(name, at))
        program[at + name.size() - 1] = 'X';
    std::string copy = dir.file("marvo");
    std::ofstream(copy, std::ios::binary) << program;
    fs::permissions(copy, fs::perms::owner_all);
    return copy;
}

TEST_F(DoctorLibp11Test, MissingLibp11IsReported) {
    const std::string program = copy_program_without_libp11(dir_);
    const ToolRun doctor = run_tool({"doctor"}, "", program);
    EXPECT_EQ(mistakes(doctor),
              Lines{not_loaded +
                    "libp11.so.X': libp11.so.X: cannot open shared object file: No such file or "
                    "directory: val=13 (load_failed)." +
                    install});
    EXPECT_EQ(lines(doctor, "module"), Lines{"skipped module: not checked because of the check 'libp11'."});
    EXPECT_EQ(doctor.status, 3);
}

TEST_F(DoctorLibp11Test, CommandsThatNeedTheMissingLibp11SayThatItIsMissing) {
    const std::string program = copy_program_without_libp11(dir_);
    EXPECT_EQ(
        run_tool({"list"}, "", program).errors,
        "marvo list: libp11_library:78 Kes::require_libp11(): error loading 'libp11.so.X': libp11.so.X: "
        "cannot open shared object file: No such file or directory: val=13 (load_failed)\n"
        "Run \"marvo doctor\", which says what is wrong and what to do.\n");
}

TEST_F(DoctorLibp11Test, DamagedLibp11IsReported) {
    std::ofstream(dir_.file("libp11.so.3")) << "";
    search_own_folder();
    EXPECT_EQ(mistakes(run()), Lines{not_loaded + "libp11.so.3': " + dir_.file("libp11.so.3") +
                                     ": file too short: val=13 (load_failed)." + install});
}

TEST_F(DoctorLibp11Test, OtherLibraryInPlaceOfLibp11IsReported) {
    fs::copy_file(module_, dir_.file("libp11.so.3"));
    search_own_folder();
    EXPECT_EQ(mistakes(run()),
              Lines{wrong_functions + dir_.file("libp11.so.3") +
                    "' has no function ERR_load_PKCS11_strings: val=4 (unsupported)." + install});
}

TEST_F(DoctorLibp11Test, OldLibp11IsReported) {
    set_variable("LD_LIBRARY_PATH", MARVO_OLD_LIBP11_DIR);
    const ToolRun doctor = run();
    EXPECT_EQ(mistakes(doctor), Lines{wrong_functions +
                                      MARVO_OLD_LIBP11_DIR "/libp11.so.3' has no function "
                                                           "PKCS11_update_slots: libp11 0.4.12 or later is "
                                                           "needed: val=4 (unsupported)." +
                                      install});
    EXPECT_EQ(lines(doctor, "module"), Lines{"skipped module: not checked because of the check 'libp11'."});
}

TEST_F(DoctorLibp11Test, VersionThatIsRefusedIsReported) {
    rename_libp11("libp11.so.3.4.3");
    EXPECT_EQ(mistakes(run()), Lines{"error   libp11 version: 0.4.11 according to its file name; refused: " +
                                     dir_.file("libp11.so.3") +
                                     ". Remedy: Install a version that docs/libp11.md recommends."});
}

TEST_F(DoctorLibp11Test, VersionWithALimitIsReported) {
    rename_libp11("libp11.so.3.6.0");
    EXPECT_EQ(mistakes(run()),
              Lines{"warning libp11 version: 0.4.13 according to its file name: " + dir_.file("libp11.so.3") +
                    ". Remedy: Use, but free all keys before destroy()."});
}

} // namespace
} // namespace Kes::test
