#include "tool/binary_file.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

#include "support/support.h"

namespace Kes::test {
namespace {

namespace fs = std::filesystem;
using tool::BinaryFile;
using tool::BinaryFormat;

const std::string suffix = KES_TEST_SUFFIX;

/// Changes to the folder of the libraries, each of which ends a process that loads it.
class BinaryFileTest : public testing::Test {
protected:
    static std::string library(const std::string& name) {
        return (fs::current_path() / (name + suffix)).string();
    }
    static BinaryFile inspect(const std::string& name) { return tool::inspect_file(library(name)); }

    /// The format of a file with this content.
    BinaryFormat format_of(const std::string& content) const {
        std::ofstream(dir_.file("file" + suffix), std::ios::binary) << content;
        return tool::inspect_file(dir_.file("file" + suffix)).format;
    }

    const TempDir dir_;

private:
    const CurrentFolder current_{KES_TEST_LIBRARIES};
};

TEST_F(BinaryFileTest, KindFollowsFromTheExports) {
    const struct {
        const char* name;
        const char* kind;
    } rows[] = {{"engine", "an OpenSSL engine"},
                {"module", "a PKCS#11 module"},
                {"provider", "an OpenSSL provider"},
                {"several", "an OpenSSL engine and a PKCS#11 module"},
                {"other", "a library of another kind"}};
    for (const auto& [name, kind] : rows) {
        const BinaryFile file = inspect(name);
        EXPECT_EQ(file.format, BinaryFormat::library);
        EXPECT_EQ(file.path, library(name));
        EXPECT_EQ(file.kind(), kind);
    }
}

TEST_F(BinaryFileTest, ImportedFunctionIsNoExport) {
    const BinaryFile file = inspect("needing");
    EXPECT_TRUE(file.exports("C_GetFunctionList"));
    EXPECT_FALSE(file.exports("middle_function"));
    EXPECT_FALSE(inspect("engine").exports("C_GetFunctionList"));
}

TEST_F(BinaryFileTest, LibraryFor32BitsIsRecognised) {
    const BinaryFile file = inspect("32bit");
    EXPECT_EQ(file.format, BinaryFormat::bits_32);
    EXPECT_TRUE(file.functions.empty());
    EXPECT_TRUE(file.dependencies.empty());
}

TEST_F(BinaryFileTest, OtherContentIsNoLibrary) {
    EXPECT_EQ(format_of(""), BinaryFormat::no_library);
    EXPECT_EQ(format_of("no library\n"), BinaryFormat::no_library);
    EXPECT_EQ(format_of(std::string(10000, 'x')), BinaryFormat::no_library);
    EXPECT_EQ(tool::inspect_file(dir_.path().string()).format, BinaryFormat::no_library) << "a folder";
}

TEST_F(BinaryFileTest, DamagedLibraryEndsNoProcess) {
    const std::string whole = read_file(library("needing"));
    EXPECT_EQ(format_of(whole), BinaryFormat::library);
    EXPECT_EQ(format_of(whole.substr(0, 100)), BinaryFormat::no_library);
    for (std::size_t size = 0; size < whole.size(); size += whole.size() / 20)
        format_of(whole.substr(0, size));
    for (std::size_t i = 0; i < 2048; i += 61) {
        std::string changed = whole;
        changed.replace(i, 4, "\xff\xff\xff\x7f");
        format_of(changed);
    }
}

TEST_F(BinaryFileTest, MissingFileIsAnError) {
    const std::string path = dir_.file("absent");
    EXPECT_EQ(error_text([&] { tool::inspect_file(path); }),
              "cannot read '" + path + "': No such file or directory");
}

TEST_F(BinaryFileTest, FirstMissingDependencyIsNamedWithTheFileThatNeedsIt) {
    const BinaryFile file = inspect("needing");
    ASSERT_TRUE(file.missing());
    EXPECT_EQ(file.missing()->name, "absent" + suffix);
    EXPECT_TRUE(fs::equivalent(file.missing()->needed_by, library("middle"))) << file.missing()->needed_by;
    EXPECT_EQ(std::count(file.needed.begin(), file.needed.end(), "middle" + suffix), 1);
    EXPECT_EQ(std::count(file.needed.begin(), file.needed.end(), "absent" + suffix), 0) << "not by itself";
}

TEST_F(BinaryFileTest, CompleteLibraryMissesNothing) {
    const BinaryFile file = inspect("module");
    EXPECT_FALSE(file.missing()) << file.missing()->name;
    EXPECT_FALSE(file.dependencies.empty()) << "at least the C library";
}

TEST_F(BinaryFileTest, OwnLibcryptoIsFound) {
    const BinaryFile file = inspect("ciphering");
    ASSERT_TRUE(file.libcrypto());
    EXPECT_TRUE(fs::exists(file.libcrypto()->path)) << file.libcrypto()->path;
    EXPECT_FALSE(inspect("module").libcrypto());
}

TEST_F(BinaryFileTest, LibrariesAreFoundByPath) {
    EXPECT_EQ(tool::find_library("./engine" + suffix), library("engine"));
    EXPECT_EQ(tool::find_library(library("engine")), library("engine"));
    EXPECT_EQ(tool::find_library("./nothing" + suffix), "");
    EXPECT_EQ(tool::find_library(""), "");
}

} // namespace
} // namespace Kes::test
