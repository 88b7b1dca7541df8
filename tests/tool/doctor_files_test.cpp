// The command doctor with mistakes in the settings and files of an installation.
#include "doctor_run.h"

#include <filesystem>
#include <fstream>
#include <unistd.h>

#include "support/process.h"

namespace Kes::test {
namespace {

const std::string swapped = "; check that the paths of engine and module are not swapped.";

TEST_F(DoctorTest, InstallationWithoutMistakesHasNoErrors) {
    const ToolRun doctor = run();
    EXPECT_EQ(mistakes(doctor), Lines{});
    EXPECT_EQ(doctor.status, 0);
    EXPECT_TRUE(doctor.output.ends_with("\n0 errors, 0 warnings\n")) << doctor.output;
    EXPECT_FALSE(std::filesystem::exists(dir_.file("log")));
}

TEST_F(DoctorTest, WrongModulePathIsReported) {
    set("pkcs11_module_dll", dir_.file("absent.so"));
    const ToolRun doctor = run();
    EXPECT_EQ(
        mistakes(doctor),
        Lines{
            "error   module file: pkcs11_module_dll=" + dir_.file("absent.so") +
            ": there is no such file. Remedy: Set pkcs11_module_dll to the full path of a PKCS#11 module."});
    EXPECT_EQ(lines(doctor, "module"),
              Lines{"skipped module: not checked because of the check 'module file'."});
    EXPECT_EQ(doctor.status, 3);
}

TEST_F(DoctorTest, NameThatTheLoaderCannotSearchForIsReported) {
    set("pkcs11_module_dll", "x y");
    EXPECT_EQ(
        mistakes(run()),
        Lines{"error   module file: pkcs11_module_dll=x y: cannot search for 'x y': the name contains a "
              "space or a colon. Remedy: Set pkcs11_module_dll to the full path of a PKCS#11 module."});
}

TEST_F(DoctorTest, SwappedEngineAndModuleAreReported) {
    set("pkcs11_module_dll", system_engine);
    set("pkcs11_openssl_engine_dll", module_);
    EXPECT_EQ(
        mistakes(run()),
        (Lines{"error   engine file: " + module_ +
                   " is a PKCS#11 module, not an OpenSSL engine. Remedy: Set pkcs11_openssl_engine_dll to an "
                   "OpenSSL engine" +
                   swapped,
               std::string("error   module file: ") + system_engine +
                   " is an OpenSSL engine, not a PKCS#11 module. Remedy: Set pkcs11_module_dll to a "
                   "PKCS#11 module" +
                   swapped}));
}

TEST_F(DoctorTest, ModuleFor32BitsIsReported) {
    set("pkcs11_module_dll", MARVO_LIBRARY_32_BIT);
    EXPECT_EQ(
        mistakes(run()),
        Lines{"error   module file: " MARVO_LIBRARY_32_BIT
              " is a library for 32 bits, but this program has 64. Remedy: Set pkcs11_module_dll to the full "
              "path of one for 64 bits."});
}

TEST_F(DoctorTest, RelativePathIsReportedWithTheFileThatItNames) {
    std::filesystem::create_symlink(module_, dir_.file("module.so"));
    set("pkcs11_module_dll", "./module.so");
    EXPECT_EQ(
        mistakes(run()),
        Lines{
            "warning module file: pkcs11_module_dll=./module.so is a relative path, so that another current "
            "folder may lead to another file; here it is " +
            dir_.file("module.so") + ". Remedy: Set pkcs11_module_dll to the full path of the file."});
}

TEST_F(DoctorTest, MissingEngineIsReported) {
    set("pkcs11_openssl_engine_dll", dir_.file("pkcs11.so"));
    EXPECT_EQ(mistakes(run()),
              Lines{"error   engine file: pkcs11_openssl_engine_dll=" + dir_.file("pkcs11.so") +
                    ": there is no such file. Remedy: Set pkcs11_openssl_engine_dll to the full "
                    "path of an OpenSSL engine."});
}

TEST_F(DoctorTest, FileThatOthersCanChangeIsReported) {
    std::filesystem::copy_file(module_, dir_.file("module.so"));
    std::filesystem::permissions(dir_.file("module.so"), std::filesystem::perms::all);
    set("pkcs11_module_dll", dir_.file("module.so"));
    EXPECT_EQ(mistakes(run()),
              Lines{"warning module file: other users can change " + dir_.file("module.so") +
                    ", and so the code that runs with access to the PIN. Remedy: Take the right to "
                    "write to it from them."});
}

TEST_F(DoctorTest, BackEndInUpperCaseIsReported) {
    set("crypto_if", "PKCS11");
    EXPECT_EQ(
        mistakes(run()),
        (Lines{"warning environment: ossl_scard_cfg_crypto_if=PKCS11 names no back-end. Remedy: Set it to "
               "pkcs11.",
               "error   back-end: the setting crypto_if names no back-end. Remedy: Set it to capi, pkcs11 or "
               "capi_store, in lower case."}));
}

TEST_F(DoctorTest, BackEndOfWindowsIsReported) {
    set("crypto_if", "capi");
    EXPECT_EQ(
        mistakes(run()),
        Lines{
            "error   back-end: capi_backend:19 Kes::capi_backend::create_scanner(): crypto interface capi is "
            "available on Windows only: val=4 (unsupported). Remedy: Set crypto_if to pkcs11, by the client "
            "or by the variable ossl_scard_cfg_crypto_if; the command marvo env prints the settings for this "
            "system."});
}

TEST_F(DoctorTest, DefaultsThatAreNamesOfWindowsFilesAreReportedWithTheCommandThatHelps) {
    const std::string env = "; the command marvo env prints the settings for this system.";
    set("pkcs11_module_dll", "");
    set("pkcs11_openssl_engine_dll", "");
    EXPECT_EQ(
        mistakes(run()),
        (Lines{
            "warning engine file: pkcs11_openssl_engine_dll=.\\pkcs11.dll has no folder, so that the loader "
            "searches for it; here it is no file. Remedy: Set pkcs11_openssl_engine_dll to the full path of "
            "the file.",
            "error   engine file: pkcs11_openssl_engine_dll=.\\pkcs11.dll: there is no such file. Remedy: "
            "Set "
            "pkcs11_openssl_engine_dll to the full path of an OpenSSL engine" +
                env,
            "warning module file: pkcs11_module_dll=itp11.dll has no folder, so that the loader searches for "
            "it; here it is no file. Remedy: Set pkcs11_module_dll to the full path of the file.",
            "error   module file: pkcs11_module_dll=itp11.dll: there is no such file. Remedy: Set "
            "pkcs11_module_dll to the full path of a PKCS#11 module" +
                env}));
}

TEST_F(DoctorTest, MissingSettingOfTheBackEndIsReportedWithTheCommandThatHelps) {
    set("crypto_if", "");
    EXPECT_EQ(
        lines(run(), "back-end"),
        Lines{"error   back-end: capi_backend:19 Kes::capi_backend::create_scanner(): crypto interface capi "
              "is available on Windows only: val=4 (unsupported). Remedy: Set crypto_if to pkcs11, by the "
              "client or by the variable ossl_scard_cfg_crypto_if; the command marvo env prints the "
              "settings for this system."});
}

TEST_F(DoctorTest, MisspeltVariableIsReported) {
    set("pkcs11_modul_dll", "x");
    EXPECT_EQ(mistakes(run()),
              Lines{"error   environment: ossl_scard_cfg_pkcs11_modul_dll is not a setting and has "
                    "no effect. Remedy: Rename it to ossl_scard_cfg_pkcs11_module_dll."});
}

TEST_F(DoctorTest, SettingsNameTheirSource) {
    const Lines settings = lines(run({"--set", "logfile_severity=24"}), "settings");
    ASSERT_EQ(settings.size(), 17U);
    EXPECT_EQ(settings.at(0), "ok      settings: crypto_if=pkcs11 (variable ossl_scard_cfg_crypto_if).");
    EXPECT_EQ(settings.at(2),
              "ok      settings: capi_csp_name=Microsoft Base Smart Card Crypto Provider (default).");
    EXPECT_EQ(settings.at(15), "ok      settings: logfile_severity=warn|error (option).");
}

TEST_F(DoctorTest, SoftHsmConfigurationThatDoesNotExistIsReported) {
    set("pkcs11_module_dll", MARVO_SOFTHSM_MODULE);
    set_variable("SOFTHSM2_CONF", dir_.file("absent.conf"));
    EXPECT_EQ(mistakes(run()),
              Lines{"error   SoftHSM2: the variable SOFTHSM2_CONF names no file: " +
                    dir_.file("absent.conf") + ". Remedy: Set it to the path of softhsm2.conf."});
}

const std::string other_log =
    " Remedy: Set logfile to a path in a folder in which the user of the client may write.";

TEST_F(DoctorTest, MissingFolderOfTheLogIsReported) {
    set("logfile", dir_.file("absent/log"));
    EXPECT_EQ(mistakes(run()),
              Lines{"error   log file: the folder " + dir_.file("absent") + " does not exist." + other_log});
}

TEST_F(DoctorTest, FileInPlaceOfTheFolderOfTheLogIsReported) {
    std::ofstream(dir_.file("file")) << "text";
    set("logfile", dir_.file("file/log"));
    EXPECT_EQ(mistakes(run()),
              Lines{"error   log file: " + dir_.file("file") + " is no folder." + other_log});
}

/// Root may write everywhere, unless the program loses its capabilities.
ToolRun run_without_capabilities() {
    const TempDir dir;
    std::vector<std::string> command{"/bin/sh", "-c", R"(exec "$@" >"$0")", dir.file("output")};
    if (::geteuid() == 0) command.insert(command.end(), {"setpriv", "--bounding-set=-all"});
    command.insert(command.end(), {MARVO_TOOL_PROGRAM, "doctor"});
    Process process(command, dir.file("errors"));
    const int status = process.wait();
    return {status, read_file(dir.file("output")), read_file(dir.file("errors"))};
}

TEST_F(DoctorTest, FolderOfTheLogWithoutWriteAccessIsReported) {
    std::filesystem::create_directory(dir_.file("logs"));
    std::filesystem::permissions(dir_.file("logs"), std::filesystem::perms(0555));
    set("logfile", dir_.file("logs/log"));
    EXPECT_EQ(mistakes(run_without_capabilities()),
              Lines{"error   log file: this user may not create files in the folder " + dir_.file("logs") +
                    "." + other_log});
}

TEST_F(DoctorTest, LogFileWithoutWriteAccessIsReported) {
    std::ofstream(dir_.file("old")) << "text";
    std::filesystem::permissions(dir_.file("old"), std::filesystem::perms(0444));
    set("logfile", dir_.file("old"));
    EXPECT_EQ(
        mistakes(run_without_capabilities()),
        Lines{"error   log file: this user may not write to the file " + dir_.file("old") + "." + other_log});
}

TEST_F(DoctorTest, EngineOfOpensslConfigurationIsReported) {
    std::ofstream(dir_.file("openssl.cnf")) << "openssl_conf = start\n[start]\nengines = "
                                               "list\n[list]\npkcs11 = card\n[card]\nengine_id = pkcs11\n"
                                            << "dynamic_path = " << system_engine << "\n";
    set_variable("OPENSSL_CONF", dir_.file("openssl.cnf"));
    const ToolRun doctor = run();
    EXPECT_EQ(
        mistakes(doctor),
        Lines{
            "error   openssl.cnf: " + dir_.file("openssl.cnf") +
            " loads the engine 'pkcs11', and then OpenSSL refuses to load it again for the library. Remedy: "
            "Remove its section, or give the client another file by the variable OPENSSL_CONF."});
    EXPECT_EQ(lines(doctor, "engine"),
              Lines{"skipped engine: not checked because of the check 'openssl.cnf'."});
}

} // namespace
} // namespace Kes::test
