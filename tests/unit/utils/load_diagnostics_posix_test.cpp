#include "utils/load_diagnostics.h"

#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <openssl/err.h>

#include "support/error_lines.h"
#include "support/support.h"
#include "utils/error.h"

namespace Kes::test {
namespace {

namespace fs = std::filesystem;

const std::string real_module = KES_TEST_MODULE;
const std::string real_engine = KES_TEST_ENGINE;

/// Changes to a temporary folder that contains files that cannot be loaded.
class LoadDiagnosticsTest : public testing::Test {
protected:
    LoadDiagnosticsTest() {
        fs::create_directory(file("folder.so"));
        std::ofstream(file("short.so")) << "no library\n";
        std::ofstream(file("text.so")) << std::string(100, 'x');
        std::string bytes = read_file(real_module);
        bytes.at(4) = 1; // the class in the ELF header: 32 bits
        std::ofstream(file("32bit.so"), std::ios::binary) << bytes;
        ::ERR_clear_error();
    }

    ~LoadDiagnosticsTest() override { ::ERR_clear_error(); }

    std::string file(const std::string& name) const { return dir_.file(name); }

    /// The entries that the call adds to the error queue.
    static std::string engine(const std::string& path) {
        append_engine_load_error(path.c_str());
        return OsslErrorCode(0).text;
    }
    static std::string module(const std::string& path) {
        append_module_load_error(path.c_str());
        return OsslErrorCode(0).text;
    }

    static bool is_loaded(const std::string& path) {
        void* library = ::dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
        if (library != nullptr) ::dlclose(library);
        return library != nullptr;
    }

private:
    TempDir dir_;
    CurrentFolder current_{dir_.path()};
};

TEST_F(LoadDiagnosticsTest, UsableModuleAndEngineAreNotReported) {
    EXPECT_EQ(module(real_module), "");
    EXPECT_EQ(engine(real_engine), "");
}

TEST_F(LoadDiagnosticsTest, LoaderMessageIsReportedForAFileThatIsNoModule) {
    const struct {
        const char* name;
        const char* message;
    } rows[] = {
        {"missing.so", "cannot open shared object file: No such file or directory"},
        {"folder.so", "cannot read file data: Is a directory"},
        {"short.so", "file too short"},
        {"text.so", "invalid ELF header"},
        {"32bit.so", "wrong ELF class: ELFCLASS32"},
    };
    for (const auto& [name, message] : rows) {
        const std::string expected = queue_line(file(name) + ": " + message);
        EXPECT_EQ(module(file(name)), expected);
    }
}

TEST_F(LoadDiagnosticsTest, LoaderMessageForAFileThatIsNoEngineIsNotRepeated) {
    for (const char* name : {"missing.so", "folder.so", "short.so", "text.so", "32bit.so"})
        EXPECT_EQ(engine(file(name)), "") << name;
}

TEST_F(LoadDiagnosticsTest, EngineInPlaceOfAModuleIsRecognised) {
    const std::string expected =
        queue_line("'" + real_engine + "' is an OpenSSL engine, not a PKCS#11 module");
    EXPECT_EQ(module(real_engine), expected);
}

TEST_F(LoadDiagnosticsTest, ModuleInPlaceOfAnEngineIsRecognised) {
    const std::string expected =
        queue_line("'" + real_module + "' is a PKCS#11 module, not an OpenSSL engine");
    EXPECT_EQ(engine(real_module), expected);
}

TEST_F(LoadDiagnosticsTest, LibraryThatIsNeitherIsReportedToLackTheFunctionOfAModule) {
    const std::string text = masked_errors(module("libcrypt.so.1"));
    const std::string start = "error:DSO support routines:system lib:";
    const std::string end = ": undefined symbol: C_GetFunctionList";
    ASSERT_TRUE(text.starts_with(start + "/") && text.ends_with("/libcrypt.so.1" + end)) << text;
    const std::string path = text.substr(start.size(), text.size() - start.size() - end.size());
    EXPECT_EQ(engine(path), "") << "OpenSSL reports this itself";
}

TEST_F(LoadDiagnosticsTest, NameIsLookedUpAsOpensslAndLibp11LookItUp) {
    fs::copy_file(real_module, file("libmodule.so"));
    const std::string not_found = ": cannot open shared object file: No such file or directory";
    const std::string bare_module = queue_line("libmodule.so" + not_found);
    EXPECT_EQ(module("libmodule.so"), bare_module) << "the loader does not search the current folder";
    EXPECT_EQ(module("./libmodule.so"), "");
    const std::string by_path = queue_line("'./libmodule.so' is a PKCS#11 module, not an OpenSSL engine");
    EXPECT_EQ(engine("./libmodule.so"), by_path);
    // The loader finds a library that is already loaded by its bare name.
    void* loaded = ::dlopen(real_module.c_str(), RTLD_LAZY);
    const std::string by_name =
        queue_line("'" + real_module + "' is a PKCS#11 module, not an OpenSSL engine");
    EXPECT_EQ(engine("softhsm2"), by_name);
    ::dlclose(loaded);
}

TEST_F(LoadDiagnosticsTest, LoadedLibrariesAreUnloaded) {
    const std::string copy = file("engine.so");
    fs::copy_file(real_engine, copy);
    engine(copy);
    EXPECT_FALSE(is_loaded(copy));
    module(copy);
    EXPECT_FALSE(is_loaded(copy));
}

TEST_F(LoadDiagnosticsTest, MessageFollowsTheEarlierEntriesOfTheQueue) {
    const std::string expected = queue_line(file("text.so") + ": invalid ELF header");
    ERR_raise(ERR_LIB_USER, ERR_R_INTERNAL_ERROR);
    append_module_load_error(file("text.so").c_str());
    ::ERR_get_error();
    EXPECT_EQ(OsslErrorCode(0).text, expected);
}

} // namespace
} // namespace Kes::test
