// Wrong files with a name of libp11. The error names the file and the system's error, the process
// continues, and the right file loads afterwards.
#include <fstream>

#include "dll_folder.h"

namespace Kes::test {
namespace {

constexpr const char* not_64_bits = ": it, or a DLL that it needs, is no DLL for 64 bits";

class WrongLibp11Test : public DllFolder {
protected:
    const std::filesystem::path file = folder / "libp11.dll";

    /// Calls init() twice with the pkcs11 back-end, then once with capi.
    std::string run_with_wrong_file() const {
        return run({log_setting, "backend=pkcs11", "init", "init", "backend=capi", "init", "destroy"});
    }

    static std::string failures(const std::string& error) {
        return "init: 1 " + error + "\ninit: 1 " + error + "\ninit: 0\ndestroy: 0\n";
    }

    std::string not_loaded(unsigned long code, const std::string& hint = "") const {
        return "libp11_library:78 Kes::require_libp11(): error loading '" + file.string() + "'" + hint +
               ": " + windows_error(code);
    }
};

TEST_F(WrongLibp11Test, TextFileIsRejected) {
    put_text_file(file);
    EXPECT_EQ(run_with_wrong_file(), failures(not_loaded(193, not_64_bits)));
}

TEST_F(WrongLibp11Test, EmptyFileIsRejected) {
    std::ofstream{file};
    EXPECT_EQ(run_with_wrong_file(), failures(not_loaded(193, not_64_bits)));
}

TEST_F(WrongLibp11Test, DllFor32BitsIsRejected) {
    put_as(wrong / "32bit.dll", file);
    EXPECT_EQ(run_with_wrong_file(), failures(not_loaded(193, not_64_bits)));
}

TEST_F(WrongLibp11Test, MissingDependencyIsDistinguishedFromMissingLibp11) {
    put(wrong / "needing" / "libp11.dll", folder);
    EXPECT_EQ(run_with_wrong_file(), failures(not_loaded(126, ": a DLL that it needs is missing")));
}

TEST_F(WrongLibp11Test, ErrorNamesFileAndMissingFunction) {
    put(wrong / "lacking" / "libp11.dll", folder);
    EXPECT_EQ(run_with_wrong_file(),
              failures("libp11_library:117 Kes::require_libp11(): '" + file.string() +
                       "' has no function PKCS11_is_logged_in: " + windows_error(127)));
}

TEST_F(WrongLibp11Test, ErrorNamesNeededVersionIfLibp11IsTooOld) {
    put(wrong / "old" / "libp11.dll", folder);
    EXPECT_EQ(run_with_wrong_file(),
              failures("libp11_library:117 Kes::require_libp11(): '" + file.string() +
                       "' has no function PKCS11_update_slots: libp11 0.4.12 or later is needed: " +
                       windows_error(127)));
}

TEST_F(WrongLibp11Test, ErrorNamesFileFoundInPath) {
    const auto in_path = make_folder("in path");
    put_text_file(in_path / "libp11.dll");
    path_variable = in_path.string();
    EXPECT_EQ(run_with_wrong_file(),
              failures("libp11_library:78 Kes::require_libp11(): error loading '" +
                       (in_path / "libp11.dll").string() + "'" + not_64_bits + ": " + windows_error(193)));
}

TEST_F(WrongLibp11Test, ErrorNamesFileWithSecondName) {
    const auto second = folder / "libp11-3.dll";
    put_text_file(second);
    EXPECT_EQ(run_with_wrong_file(),
              failures("libp11_library:78 Kes::require_libp11(): error loading '" + second.string() + "'" +
                       not_64_bits + ": " + windows_error(193)));
}

TEST_F(WrongLibp11Test, WrongFileIsNotReplacedByRightFileWithSecondName) {
    put_text_file(file);
    put_as(wrong / "whole" / "libp11.dll", folder / "libp11-3.dll");
    EXPECT_EQ(run_with_wrong_file(), failures(not_loaded(193, not_64_bits)));
}

TEST_F(WrongLibp11Test, WrongFileInPathIsNotReplacedByRightFileWithSecondName) {
    const auto in_path = make_folder("in path");
    put_text_file(in_path / "libp11.dll");
    put_as(wrong / "whole" / "libp11.dll", in_path / "libp11-3.dll");
    path_variable = in_path.string();
    EXPECT_EQ(run_with_wrong_file(),
              failures("libp11_library:78 Kes::require_libp11(): error loading '" +
                       (in_path / "libp11.dll").string() + "'" + not_64_bits + ": " + windows_error(193)));
}

TEST_F(WrongLibp11Test, RightFileIsLoadedInSameProcessAfterWrongFile) {
    put(wrong / "lacking" / "libp11.dll", folder);
    const std::string replace =
        "copy_file=" + (wrong / "whole" / "libp11.dll").string() + "|" + file.string();
    EXPECT_EQ(run({log_setting, "backend=pkcs11", "init", replace, "init", "destroy"}),
              "init: 1 libp11_library:117 Kes::require_libp11(): '" + file.string() +
                  "' has no function PKCS11_is_logged_in: " + windows_error(127) + "\ninit: 0\ndestroy: 0\n");
}

} // namespace
} // namespace Kes::test
