// The names and the search path of libp11. The test double returns the path of its file as the module's manufacturer,
// which the library logs.
#include "dll_folder.h"

namespace Kes::test {
namespace {

using testing::Contains;

class Libp11SearchTest : public DllFolder {
protected:
    const Lines pkcs11_init{log_setting, "backend=pkcs11", "init", "destroy"};
    const std::string success = "init: 0\ndestroy: 0\n";

    std::string not_found() const {
        return "libp11_library:78 Kes::require_libp11(): libp11.dll and libp11-3.dll not found: "
               "looked for them in '" +
               folder.string() +
               "\\', the program's folder, the system's folders, the current folder and PATH: " +
               windows_error(126);
    }

    Lines log() const { return log_lines(dir.file("log")); }

    static std::string loaded(const std::filesystem::path& file) {
        return "<info> ctx: manufacturer=" + file.string() + ", description=a module";
    }

    static std::string loaded_from(const std::filesystem::path& place) {
        return loaded(place / "libp11.dll");
    }

    void put_whole(const std::filesystem::path& target) const {
        put_as(wrong / "whole" / "libp11.dll", target);
    }
};

TEST_F(Libp11SearchTest, MissingLibp11IsReportedWithSearchPathInErrorAndLog) {
    EXPECT_EQ(run(pkcs11_init), "init: 1 " + not_found() + "\ndestroy: 0\n");
    EXPECT_EQ(logged_errors(), Lines{"<error> " + not_found()});
}

TEST_F(Libp11SearchTest, MissingLibp11CausesSameErrorInEveryInit) {
    EXPECT_EQ(run({"backend=pkcs11", "init", "init", "init", "destroy"}),
              "init: 1 " + not_found() + "\ninit: 1 " + not_found() + "\ninit: 1 " + not_found() +
                  "\ndestroy: 0\n");
}

TEST_F(Libp11SearchTest, MissingLibp11DoesNotAffectOtherBackends) {
    EXPECT_EQ(run({"backend=pkcs11", "init", "backend=capi", "init", "destroy"}),
              "init: 1 " + not_found() + "\ninit: 0\ndestroy: 0\n");
}

TEST_F(Libp11SearchTest, Libp11AddedWhileProgramRunsIsFound) {
    const std::string add =
        "copy_file=" + (wrong / "whole" / "libp11.dll").string() + "|" + (folder / "libp11.dll").string();
    EXPECT_EQ(run({log_setting, "append=yes", "backend=pkcs11", "init", add, "init", "destroy"}),
              "init: 1 " + not_found() + "\n" + success);
    EXPECT_THAT(log(), Contains(loaded_from(folder)));
}

TEST_F(Libp11SearchTest, Libp11NextToDllIsFoundByProgramInAnotherFolder) {
    move_client_to(make_folder("program"));
    put(wrong / "whole" / "libp11.dll", folder);
    EXPECT_EQ(run(pkcs11_init), success);
    EXPECT_THAT(log(), Contains(loaded_from(folder)));
}

TEST_F(Libp11SearchTest, Libp11NextToProgramIsFound) {
    const auto program = make_folder("program");
    move_client_to(program);
    put(wrong / "whole" / "libp11.dll", program);
    EXPECT_EQ(run(pkcs11_init), success);
    EXPECT_THAT(log(), Contains(loaded_from(program)));
}

TEST_F(Libp11SearchTest, Libp11InPathIsFound) {
    const auto in_path = make_folder("in path");
    put(wrong / "whole" / "libp11.dll", in_path);
    path_variable = in_path.string();
    EXPECT_EQ(run(pkcs11_init), success);
    EXPECT_THAT(log(), Contains(loaded_from(in_path)));
}

TEST_F(Libp11SearchTest, Libp11NextToDllTakesPrecedence) {
    const auto program = make_folder("program");
    const auto in_path = make_folder("in path");
    move_client_to(program);
    path_variable = in_path.string();
    for (const auto& place : {folder, program, in_path, current})
        put(wrong / "whole" / "libp11.dll", place);
    EXPECT_EQ(run(pkcs11_init), success);
    EXPECT_THAT(log(), Contains(loaded_from(folder)));
}

TEST_F(Libp11SearchTest, Libp11NextToDllIsUsedAlthoughProgramHasLoadedAnother) {
    const auto other = make_folder("other");
    put(wrong / "whole" / "libp11.dll", other);
    put(wrong / "whole" / "libp11.dll", folder);
    EXPECT_EQ(run({log_setting, "load_dll=" + (other / "libp11.dll").string(), "backend=pkcs11", "init",
                   "destroy"}),
              success);
    EXPECT_THAT(log(), Contains(loaded_from(folder)));
}

TEST_F(Libp11SearchTest, SecondNameIsFoundNextToDll) {
    put_whole(folder / "libp11-3.dll");
    EXPECT_EQ(run(pkcs11_init), success);
    EXPECT_THAT(log(), Contains(loaded(folder / "libp11-3.dll")));
}

TEST_F(Libp11SearchTest, SecondNameIsFoundInPath) {
    const auto in_path = make_folder("in path");
    put_whole(in_path / "libp11-3.dll");
    path_variable = in_path.string();
    EXPECT_EQ(run(pkcs11_init), success);
    EXPECT_THAT(log(), Contains(loaded(in_path / "libp11-3.dll")));
}

TEST_F(Libp11SearchTest, FirstNameTakesPrecedenceNextToDll) {
    put_whole(folder / "libp11.dll");
    put_whole(folder / "libp11-3.dll");
    EXPECT_EQ(run(pkcs11_init), success);
    EXPECT_THAT(log(), Contains(loaded(folder / "libp11.dll")));
}

TEST_F(Libp11SearchTest, SecondNameNextToDllTakesPrecedenceOverFirstNameElsewhere) {
    const auto program = make_folder("program");
    move_client_to(program);
    put_whole(folder / "libp11-3.dll");
    put_whole(program / "libp11.dll");
    EXPECT_EQ(run(pkcs11_init), success);
    EXPECT_THAT(log(), Contains(loaded(folder / "libp11-3.dll")));
}

TEST_F(Libp11SearchTest, FirstNameInPathTakesPrecedenceOverSecondNameNextToProgram) {
    const auto program = make_folder("program");
    const auto in_path = make_folder("in path");
    move_client_to(program);
    put_whole(program / "libp11-3.dll");
    put_whole(in_path / "libp11.dll");
    path_variable = in_path.string();
    EXPECT_EQ(run(pkcs11_init), success);
    EXPECT_THAT(log(), Contains(loaded(in_path / "libp11.dll")));
}

TEST_F(Libp11SearchTest, CallsToMissingLibp11FailWithoutCrash) {
    put(bin / "libp11_direct_calls.exe", folder);
    EXPECT_EQ(run_other(folder / "libp11_direct_calls.exe"), "PKCS11_CTX_new: null\n"
                                                             "PKCS11_find_token: null\n"
                                                             "PKCS11_CTX_load: -1\n"
                                                             "PKCS11_enumerate_slots: -1\n"
                                                             "PKCS11_is_logged_in: -1\n"
                                                             "PKCS11_login: -1\n"
                                                             "PKCS11_enumerate_certs: -1\n"
                                                             "PKCS11_enumerate_keys: -1\n"
                                                             "PKCS11_enumerate_public_keys: -1\n"
                                                             "PKCS11_update_slots: -1\n");
}

} // namespace
} // namespace Kes::test
