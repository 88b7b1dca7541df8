#include "utils/load_diagnostics.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <openssl/err.h>

#include "support/error_lines.h"
#include "support/support.h"
#include "support/windows_error.h"
#include "utils/error.h"
#include "utils/load_diagnostics_win.h"
#include "utils/windows_api.h"

namespace Kes::test {
namespace {

namespace fs = std::filesystem;

/// Changes to a temporary folder that contains "fine.dll" and libraries that cannot be loaded.
class LoadDiagnosticsTest : public testing::Test {
protected:
    LoadDiagnosticsTest() {
        fs::copy_file(KES_TEST_FINE_DLL, file("fine.dll"));
        fs::copy_file(KES_TEST_DEPENDENT_DLL, file("dependent.dll"));
        std::ofstream(file("text.dll")) << "this is no library\n";
        make_32_bit_library();
        ::ERR_clear_error();
    }

    ~LoadDiagnosticsTest() override { ::ERR_clear_error(); }

    std::string file(const std::string& name) const { return dir_.file(name); }

    /// The entries that the call adds to the error queue.
    template <typename Function>
    static std::string entries_of(Function explain, const std::string& path) {
        explain(path.c_str());
        return OsslErrorCode(0).text;
    }
    static std::string engine(const std::string& path) { return entries_of(append_engine_load_error, path); }
    static std::string module(const std::string& path) { return entries_of(append_module_load_error, path); }

    static std::string not_loaded(const std::string& name, DWORD error, const std::string& hint = "") {
        return queue_line("error loading '" + name + "'" + hint + ": " + windows_error(error));
    }

    static constexpr const char* not_64_bit = ": it, or a DLL that it needs, is no DLL for 64 bits";

    static std::string lacks_function(const std::string& function, const std::string& name) {
        return queue_line("'" + name + "' has no function " + function + ": " +
                          windows_error(ERROR_PROC_NOT_FOUND));
    }

    /// The error with which the system refuses to load the library.
    static DWORD error_of_system(const std::string& name) {
        const HMODULE library = ::LoadLibraryA(name.c_str());
        const DWORD error = ::GetLastError();
        if (library == nullptr) return error;
        ::FreeLibrary(library);
        return ERROR_SUCCESS;
    }

private:
    /// Copies "fine.dll" and changes the processor in its header.
    void make_32_bit_library() const {
        std::string bytes = read_file(file("fine.dll"));
        const auto header = static_cast<std::size_t>(static_cast<unsigned char>(bytes.at(0x3c)));
        ASSERT_EQ(bytes.substr(header, 6), std::string("PE\0\0\x64\x86", 6));
        bytes[header + 4] = '\x4c'; // the machine type 0x014c
        bytes[header + 5] = '\x01';
        std::ofstream(file("other.dll"), std::ios::binary) << bytes;
    }

    TempDir dir_;
    CurrentFolder current_{dir_.path()};
};

TEST_F(LoadDiagnosticsTest, LoadableLibraryIsNotReportedAndIsUnloaded) {
    for (const std::string& name :
         {file("fine.dll"), std::string(".\\fine.dll"), std::string("./fine.dll")}) {
        EXPECT_EQ(engine(name), "");
        EXPECT_EQ(module(name), "");
    }
    EXPECT_EQ(::GetModuleHandleA("fine.dll"), nullptr);
}

TEST_F(LoadDiagnosticsTest, MissingFileIsReportedWithTheSystemError) {
    const std::string name = file("missing.dll");
    const std::string expected = not_loaded(name, ERROR_MOD_NOT_FOUND);
    EXPECT_EQ(engine(name), expected);
    EXPECT_EQ(module(name), expected);
}

TEST_F(LoadDiagnosticsTest, MissingFolderIsReported) {
    const std::string name = file("missing\\engine.dll");
    const std::string expected = not_loaded(name, error_of_system(name));
    EXPECT_EQ(engine(name), expected);
    EXPECT_EQ(module(name), expected);
}

TEST_F(LoadDiagnosticsTest, TextFileIsNotALibrary) {
    const std::string name = file("text.dll");
    const std::string expected = not_loaded(name, ERROR_BAD_EXE_FORMAT, not_64_bit);
    EXPECT_EQ(engine(name), expected);
    EXPECT_EQ(module(name), expected);
}

TEST_F(LoadDiagnosticsTest, LibraryForAnotherProcessorIsNotLoaded) {
    const std::string name = file("other.dll");
    const std::string expected = not_loaded(name, ERROR_BAD_EXE_FORMAT, not_64_bit);
    EXPECT_EQ(engine(name), expected);
    EXPECT_EQ(module(name), expected);
}

TEST_F(LoadDiagnosticsTest, LibraryWithAMissingDependencyIsReported) {
    const std::string name = file("dependent.dll");
    const std::string expected = not_loaded(name, ERROR_MOD_NOT_FOUND, ": a DLL that it needs is missing");
    EXPECT_EQ(engine(name), expected);
    EXPECT_EQ(module(name), expected);
}

TEST_F(LoadDiagnosticsTest, OtherLibraryIsReportedToLackTheFunction) {
    const std::string library = "C:\\windows\\system32\\version.dll";
    const std::string no_engine = lacks_function("bind_engine", library);
    const std::string no_module = lacks_function("C_GetFunctionList", library);
    EXPECT_EQ(engine(library), no_engine);
    EXPECT_EQ(module(library), no_module);
}

TEST_F(LoadDiagnosticsTest, DirectoryIsCalledADirectory) {
    fs::create_directory(file("folder.dll"));
    fs::create_directory(file("plain"));
    for (const char* name : {"folder.dll", "plain"}) {
        const std::string path = file(name);
        const std::string expected = not_loaded(path, error_of_system(path), ": it is a directory");
        EXPECT_EQ(engine(path), expected);
        EXPECT_EQ(module(path), expected);
    }
    const std::string found =
        not_loaded(file("folder.dll"), error_of_system("folder.dll"), ": it is a directory");
    EXPECT_EQ(module("folder.dll"), found);
}

TEST_F(LoadDiagnosticsTest, DirectoryWithTheBareNameOfAMissingModuleIsIgnored) {
    fs::create_directory(file("plain"));
    const std::string expected = not_loaded("plain", ERROR_MOD_NOT_FOUND, searched_folders);
    EXPECT_EQ(module("plain"), expected);
}

TEST_F(LoadDiagnosticsTest, EngineAndModuleInEachOthersPlaceAreRecognised) {
    const std::string engine_file = file("engine.dll");
    const std::string module_file = file("module.dll");
    fs::copy_file(KES_TEST_ENGINE_DLL, engine_file);
    fs::copy_file(KES_TEST_MODULE_DLL, module_file);
    EXPECT_EQ(engine(engine_file), "");
    EXPECT_EQ(module(module_file), "");
    const std::string no_module =
        queue_line("'" + engine_file + "' is an OpenSSL engine, not a PKCS#11 module");
    EXPECT_EQ(module(engine_file), no_module);
    const std::string no_engine =
        queue_line("'" + module_file + "' is a PKCS#11 module, not an OpenSSL engine");
    EXPECT_EQ(engine(module_file), no_engine);
    EXPECT_EQ(::GetModuleHandleA("engine.dll"), nullptr);
    EXPECT_EQ(::GetModuleHandleA("module.dll"), nullptr);
}

TEST_F(LoadDiagnosticsTest, BareEngineNameIsSearchedWithTheExtensionThatOpensslAdds) {
    const std::string expected = not_loaded("missing.dll", ERROR_MOD_NOT_FOUND, searched_folders);
    const std::string doubled = not_loaded("fine.dll.dll", ERROR_MOD_NOT_FOUND, searched_folders);
    const std::string text = not_loaded(file("text.dll"), ERROR_BAD_EXE_FORMAT, not_64_bit);
    EXPECT_EQ(engine("missing"), expected);
    EXPECT_EQ(engine("fine.dll"), doubled);
    EXPECT_EQ(engine("text"), text);
    EXPECT_EQ(engine("fine"), "");
}

TEST_F(LoadDiagnosticsTest, EnginePathIsUsedUnchanged) {
    for (const char* path : {".\\missing", "./missing", "c:missing"}) {
        const std::string expected = not_loaded(path, error_of_system(path));
        EXPECT_EQ(engine(path), expected);
    }
}

TEST_F(LoadDiagnosticsTest, ExistingFileIsReportedWithItsFullPath) {
    const std::string expected = not_loaded(file("text.dll"), ERROR_BAD_EXE_FORMAT, not_64_bit);
    for (const char* name : {"text.dll", "text", ".\\text.dll", "./text"})
        EXPECT_EQ(module(name), expected) << name;
}

TEST_F(LoadDiagnosticsTest, ModuleNameIsUsedUnchanged) {
    const std::string expected = not_loaded("missing", ERROR_MOD_NOT_FOUND, searched_folders);
    EXPECT_EQ(module("missing"), expected);
    EXPECT_EQ(module("fine.dll"), "");
    EXPECT_EQ(module("fine"), "") << "here the system adds the extension";
}

TEST_F(LoadDiagnosticsTest, ErrorFollowsTheEarlierEntriesOfTheQueue) {
    const std::string expected = not_loaded("missing", ERROR_MOD_NOT_FOUND, searched_folders);
    ERR_raise(ERR_LIB_USER, ERR_R_INTERNAL_ERROR);
    append_module_load_error("missing");
    ::ERR_get_error();
    EXPECT_EQ(OsslErrorCode(0).text, expected);
}

TEST_F(LoadDiagnosticsTest, AmbiguousSystemErrorsAreExplained) {
    EXPECT_EQ(loader_error_cause(ERROR_MOD_NOT_FOUND, true), ": a DLL that it needs is missing");
    EXPECT_EQ(loader_error_cause(ERROR_MOD_NOT_FOUND, false), "");
    for (const bool exists : {false, true}) {
        EXPECT_EQ(loader_error_cause(ERROR_PROC_NOT_FOUND, exists), ": a DLL that it needs lacks a function");
        EXPECT_EQ(loader_error_cause(ERROR_BAD_EXE_FORMAT, exists), not_64_bit);
        EXPECT_EQ(loader_error_cause(ERROR_ACCESS_DENIED, exists), "");
    }
}

class LoaderDialogsTest : public LoadDiagnosticsTest {
protected:
    ~LoaderDialogsTest() override { ::SetThreadErrorMode(before_, nullptr); }

    static constexpr DWORD with_dialogs = SEM_NOGPFAULTERRORBOX; // not the default
    static constexpr DWORD without_dialogs = SEM_NOGPFAULTERRORBOX | SEM_FAILCRITICALERRORS;

private:
    const DWORD before_ = ::GetThreadErrorMode();
};

TEST_F(LoaderDialogsTest, ThreadErrorModeIsExtendedAndRestored) {
    ASSERT_TRUE(::SetThreadErrorMode(with_dialogs, nullptr));
    {
        const ScopedNoLoaderDialogs no_dialogs;
        EXPECT_EQ(::GetThreadErrorMode(), without_dialogs);
        {
            const ScopedNoLoaderDialogs nested;
            EXPECT_EQ(::GetThreadErrorMode(), without_dialogs);
        }
        EXPECT_EQ(::GetThreadErrorMode(), without_dialogs);
    }
    EXPECT_EQ(::GetThreadErrorMode(), with_dialogs);
}

TEST_F(LoaderDialogsTest, ThreadWithoutDialogsStaysWithoutDialogs) {
    ASSERT_TRUE(::SetThreadErrorMode(without_dialogs, nullptr));
    { const ScopedNoLoaderDialogs no_dialogs; }
    EXPECT_EQ(::GetThreadErrorMode(), without_dialogs);
}

TEST_F(LoaderDialogsTest, DiagnosisDoesNotChangeTheThreadErrorMode) {
    ASSERT_TRUE(::SetThreadErrorMode(with_dialogs, nullptr));
    append_engine_load_error("missing");
    append_module_load_error("fine.dll");
    EXPECT_EQ(::GetThreadErrorMode(), with_dialogs);
}

} // namespace
} // namespace Kes::test
