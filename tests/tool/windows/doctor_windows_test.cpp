// The command doctor on Windows, with mistakes that differ from those on Linux.
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <list>

#include "support/child.h"
#include "support/test_card.h"
#include "support/windows_error.h"
#include "utils/windows_api.h"

namespace Kes::test {
namespace {

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

    void put(const fs::path& source) {
        fs::copy_file(source, folder_ / source.filename(), fs::copy_options::overwrite_existing);
    }

    std::string file(const std::string& name) const { return (folder_ / name).string(); }

    void set(const std::string& key, const std::string& value) {
        variables_.emplace_back("ossl_scard_cfg_" + key, value);
    }

    /// The lines of doctor that begin with "error" or "warning". The warning about the version of the test double
    /// of libp11 is left out, and so are rights: Wine derives them from those of the system that it runs on.
    Lines mistakes(const std::string& arguments = "") const {
        const std::string output = dir_.file("output");
        const std::string command =
            "/c \"\"" + file("marvo.exe") + "\" doctor " + arguments + " > \"" + output + "\"\"";
        run_program(system_folder() / "cmd.exe", command, folder_);
        Lines lines = split_lines(read_text(output));
        std::erase_if(lines, [](const std::string& line) {
            return (!line.starts_with("error ") && !line.starts_with("warning ")) ||
                   line.starts_with("warning libp11 version: 0.4.12 according to its exports: ") ||
                   line.find(": other users can change ") != std::string::npos;
        });
        return lines;
    }

    static Lines of_check(Lines lines, const std::string& check) {
        std::erase_if(lines,
                      [&check](const std::string& line) { return line.find(" " + check + ": ") != 7; });
        return lines;
    }

    static fs::path system_folder() {
        std::string folder(MAX_PATH, '\0');
        folder.resize(::GetSystemDirectoryA(folder.data(), MAX_PATH));
        return folder;
    }

    const TempDir dir_;
    const fs::path folder_ = (dir_.path() / "bin").make_preferred();
    TestCard card_;

private:
    EnvVar path_{"PATH", system_folder().string()};
    std::list<EnvVar> variables_;
};

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
    set("pkcs11_openssl_engine_dll", ".\\pkcs11.dll");
    EXPECT_EQ(
        mistakes(),
        Lines{
            "warning engine file: pkcs11_openssl_engine_dll=.\\pkcs11.dll is relative to the current folder, "
            "which is different in another folder; here it is " +
            file("pkcs11.dll") + ". Remedy: Set pkcs11_openssl_engine_dll to the full path of the file."});
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

TEST_F(DoctorWindowsTest, WrongPinIsReported) {
    std::ofstream(dir_.file("pin")) << "13572468";
    EXPECT_EQ(
        mistakes("--pin-file \"" + dir_.file("pin") + "\""),
        Lines{
            "error   login: libp11_helper:190 Kes::Libp11Init::authenticate(): PKCS11_login() failed: rc=-1; "
            "PKCS#11 module: PIN incorrect: PKCS11_login. Remedy: If the PIN is incorrect, find out the "
            "right one before "
            "the "
            "next try: each wrong PIN brings the card closer to being locked."});
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
    EXPECT_EQ(of_check(mistakes(), "TLS versions"), expected);

    std::ofstream(dir_.file("openssl.cnf")) << "openssl_conf = start\n[start]\nssl_conf = ssl\n[ssl]\n"
                                               "system_default = tls\n[tls]\nMinProtocol = TLSv1.3\n";
    const EnvVar config("OPENSSL_CONF", dir_.file("openssl.cnf"));
    EXPECT_EQ(of_check(mistakes(), "TLS versions"),
              Lines{"error   TLS versions: openssl.cnf demands " + keys_cannot +
                    "Remove MinProtocol from openssl.cnf, or use the back-end pkcs11."});
}

TEST_F(DoctorWindowsTest, FileInPlaceOfTheFolderOfTheLogIsReported) {
    set("logfile", file("itp11.dll") + "\\log");
    EXPECT_EQ(mistakes(),
              Lines{"error   log file: " + file("itp11.dll") +
                    " is no folder. Remedy: Set logfile to a path in a folder in which the user of the "
                    "client may write."});
}

} // namespace
} // namespace Kes::test
