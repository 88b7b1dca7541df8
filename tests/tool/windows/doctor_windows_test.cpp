// The command doctor on Windows, with mistakes in the settings and files of an installation.
#include "doctor_windows_run.h"

#include <fstream>

#include "support/windows_error.h"

namespace Kes::test {
namespace {

TEST_F(DoctorWindowsTest, InstallationWithoutMistakesHasNoErrors) { EXPECT_EQ(mistakes(), Lines{}); }

TEST_F(DoctorWindowsTest, WrongModulePathIsReported) {
    set("pkcs11_module_dll", file("absent.dll"));
    EXPECT_EQ(
        mistakes(),
        Lines{
            "error   module file: pkcs11_module_dll=" + file("absent.dll") +
            ": there is no such file. Remedy: Set pkcs11_module_dll to the full path of a PKCS#11 module."});
}

TEST_F(DoctorWindowsTest, SwappedEngineAndModuleAreReported) {
    const std::string swapped = "; check that the paths of engine and module are not swapped.";
    set("pkcs11_module_dll", file("pkcs11.dll"));
    set("pkcs11_openssl_engine_dll", file("itp11.dll"));
    EXPECT_EQ(
        mistakes(),
        (Lines{"error   engine file: " + file("itp11.dll") +
                   " is a PKCS#11 module, not an OpenSSL engine. Remedy: Set pkcs11_openssl_engine_dll to an "
                   "OpenSSL engine" +
                   swapped,
               "error   module file: " + file("pkcs11.dll") +
                   " is an OpenSSL engine, not a PKCS#11 module. Remedy: Set pkcs11_module_dll to a PKCS#11 "
                   "module" +
                   swapped}));
}

TEST_F(DoctorWindowsTest, ModuleFor32BitsIsReported) {
    put(fs::path(MARVO_WRONG_DIR) / "32bit.dll");
    set("pkcs11_module_dll", file("32bit.dll"));
    EXPECT_EQ(mistakes(),
              Lines{"error   module file: " + file("32bit.dll") +
                    " is a library for 32 bits, but this program has 64. Remedy: Set pkcs11_module_dll to "
                    "the full path of one for 64 bits."});
}

TEST_F(DoctorWindowsTest, RelativePathIsReportedWithTheFileThatItNames) {
    const std::string warning =
        "warning engine file: pkcs11_openssl_engine_dll=.\\pkcs11.dll is a relative path, so that another "
        "current folder may lead to another file; here it is " +
        file("pkcs11.dll") + ". Remedy: Set pkcs11_openssl_engine_dll to the full path of the file.";
    set("pkcs11_openssl_engine_dll", ".\\pkcs11.dll");
    EXPECT_EQ(mistakes(), Lines{warning});

    current_folder_ = dir_.path();
    EXPECT_EQ(mistakes(), Lines{warning}) << "Windows loads it from the program's folder";
}

TEST_F(DoctorWindowsTest, OldLibp11IsReported) {
    put(fs::path(MARVO_WRONG_DIR) / "old/libp11.dll");
    EXPECT_EQ(mistakes(),
              Lines{"error   libp11: libp11_library:117 Kes::require_libp11(): '" + file("libp11.dll") +
                    "' has no function PKCS11_update_slots: libp11 0.4.12 or later is needed: " +
                    windows_error(127) +
                    ". Remedy: Install libp11 0.4.12 or later, with the engine of the same version."});
}

TEST_F(DoctorWindowsTest, VersionOfLibp11ThatFailsIsReported) {
    put(fs::path(MARVO_WRONG_DIR) / "bad/libp11.dll");
    EXPECT_EQ(mistakes(),
              Lines{"error   libp11 version: 0.4.14 according to its version resource; crashes, or fails to "
                    "sign, when "
                    "several threads sign; without this library too: " +
                    file("libp11.dll") + ". Remedy: Install a version that docs/libp11.md recommends."});
}

TEST_F(DoctorWindowsTest, MissingLibp11IsReported) {
    fs::remove(folder_ / "libp11.dll");
    EXPECT_EQ(
        mistakes(),
        Lines{
            "error   libp11: libp11_library:78 Kes::require_libp11(): libp11.dll and libp11-3.dll not found: "
            "looked for them in '" +
            folder_.string() +
            "\\', the program's folder, the system's folders, the current folder and PATH: " +
            windows_error(126) +
            ". Remedy: Install libp11 0.4.12 or later, with the engine of the same version."});
}

TEST_F(DoctorWindowsTest, MissingEngineIsReported) {
    fs::remove(folder_ / "pkcs11.dll");
    EXPECT_EQ(mistakes(),
              Lines{"error   engine file: pkcs11_openssl_engine_dll=" + file("pkcs11.dll") +
                    ": there is no such file. Remedy: Set pkcs11_openssl_engine_dll to the full path of an "
                    "OpenSSL engine."});
}

TEST_F(DoctorWindowsTest, Tls13WithCryptoApiIsReported) {
    put(fs::path(MARVO_BIN_DIR) / "capi.dll");
    set("crypto_if", "capi_store");
    set("capi_store_openssl_engine_dll", file("capi.dll"));
    const std::string keys_cannot = "TLS 1.3, which the keys of this back-end cannot serve. Remedy: ";
    const Lines expected{
        "warning TLS versions: OpenSSL's defaults allow " + keys_cannot +
        "Let the client limit itself to TLS 1.2 by SSL_CTX_set_max_proto_version(), and to RSA with "
        "PKCS#1 by SSL_CTX_set1_client_sigalgs_list()."};
    EXPECT_EQ(lines("TLS versions"), expected);

    std::ofstream(dir_.file("openssl.cnf")) << "openssl_conf = start\n[start]\nssl_conf = ssl\n[ssl]\n"
                                               "system_default = tls\n[tls]\nMinProtocol = TLSv1.3\n";
    const EnvVar config("OPENSSL_CONF", dir_.file("openssl.cnf"));
    EXPECT_EQ(lines("TLS versions"),
              Lines{"error   TLS versions: openssl.cnf demands " + keys_cannot +
                    "Remove MinProtocol from openssl.cnf, or use the back-end pkcs11."});
}

TEST_F(DoctorWindowsTest, BackEndInUpperCaseIsReported) {
    set("crypto_if", "PKCS11");
    EXPECT_EQ(
        mistakes(),
        (Lines{"warning environment: ossl_scard_cfg_crypto_if=PKCS11 names no back-end. Remedy: Set it to "
               "pkcs11.",
               "error   back-end: the setting crypto_if names no back-end. Remedy: Set it to capi, pkcs11 or "
               "capi_store, in lower case."}));
}

TEST_F(DoctorWindowsTest, MisspeltVariableIsReported) {
    set("pkcs11_modul_dll", "x");
    EXPECT_EQ(mistakes(),
              Lines{"error   environment: ossl_scard_cfg_pkcs11_modul_dll is not a setting and has "
                    "no effect. Remedy: Rename it to ossl_scard_cfg_pkcs11_module_dll."});
}

TEST_F(DoctorWindowsTest, SoftHsmConfigurationThatDoesNotExistIsReported) {
    fs::rename(folder_ / "itp11.dll", folder_ / "softhsm2-x64.dll");
    set("pkcs11_module_dll", file("softhsm2-x64.dll"));
    const EnvVar config("SOFTHSM2_CONF", file("absent.conf"));
    EXPECT_EQ(mistakes(), Lines{"error   SoftHSM2: the variable SOFTHSM2_CONF names no file: " +
                                file("absent.conf") + ". Remedy: Set it to the path of softhsm2.conf."});
}

const std::string other_log =
    " Remedy: Set logfile to a path in a folder in which the user of the client may write.";

TEST_F(DoctorWindowsTest, MissingFolderOfTheLogIsReported) {
    set("logfile", file("absent\\log"));
    EXPECT_EQ(mistakes(),
              Lines{"error   log file: the folder " + file("absent") + " does not exist." + other_log});
}

TEST_F(DoctorWindowsTest, LogFileThatCannotBeWrittenIsReported) {
    const std::string log = R"(Z:\sys\kernel\uevent_seqnum)"; // not even root may write to it
    set("logfile", log);
    EXPECT_EQ(mistakes(),
              Lines{"error   log file: this user may not write to the file " + log + "." + other_log});
}

TEST_F(DoctorWindowsTest, FileInPlaceOfTheFolderOfTheLogIsReported) {
    set("logfile", file("itp11.dll") + "\\log");
    EXPECT_EQ(mistakes(), Lines{"error   log file: " + file("itp11.dll") + " is no folder." + other_log});
}

} // namespace
} // namespace Kes::test
