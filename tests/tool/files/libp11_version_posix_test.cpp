#include <filesystem>
#include <gtest/gtest.h>

#include "libp11_lines.h"
#include "support/support.h"

namespace Kes::test {
namespace {

namespace fs = std::filesystem;

const std::string libraries = KES_TEST_LIBRARIES;

/// A folder with "libp11.so.3", a link to a copy of a library.
class Libp11FileTest : public testing::Test {
protected:
    /// @param file_name  the name of the copy
    std::string line_of(const std::string& library, const std::string& file_name) const {
        const TempDir dir;
        fs::copy_file(libraries + "/" + library + ".so", dir.file(file_name));
        fs::create_symlink(file_name, dir.file("libp11.so.3"));
        return libp11_line(dir.file("libp11.so.3"));
    }
};

TEST_F(Libp11FileTest, TooOldVersionIsAnError) {
    const std::string expected = "error: earlier than 0.4.12 according to its exports; refused: FILE "
                                 "(Install a version that docs/libp11.md recommends)";
    EXPECT_EQ(line_of("libp11_0_4_11", "libp11.so.3.4.3"), expected);
    EXPECT_EQ(line_of("libp11_0_4_11", "libp11.so.3.5.0"), expected) << "the name is wrong";
}

TEST_F(Libp11FileTest, NameOfTheFileGivesTheVersion) {
    EXPECT_EQ(line_of("libp11_0_4_12", "libp11.so.3.5.0"), "ok: 0.4.12 according to its file name: FILE");
    EXPECT_EQ(line_of("libp11_later", "libp11.so.3.6.0"),
              "warning: 0.4.13 according to its file name: FILE (Use, but free all keys before destroy())");
    EXPECT_EQ(line_of("libp11_later", "libp11.so.3.10.0"),
              "note: 0.4.21 according to its file name: FILE (Not tested enough)");
}

TEST_F(Libp11FileTest, ExportsOfAnUnknownFileNameLimitTheVersion) {
    EXPECT_EQ(line_of("libp11_0_4_12", "libp11.so.3.5.9"), "ok: 0.4.12 according to its exports: FILE");
    EXPECT_EQ(
        line_of("libp11_later", "libp11.so.3.8.0"),
        "note: 0.4.13 or later according to its exports: FILE (Take libp11 and its engine from the same "
        "build, in a version that docs/libp11.md recommends)");
}

TEST_F(Libp11FileTest, VersionInsideTheEngineIsUnknown) {
    EXPECT_EQ(libp11_line(libraries + "/engine.so", tool::Link::engine),
              "note: unknown: FILE (Take libp11 and its engine from the same build, in a version that "
              "docs/libp11.md recommends)");
}

TEST_F(Libp11FileTest, LibraryOfThisSystemIsNotTooOld) {
    const tool::BinaryFile file = tool::inspect_file(tool::find_library("libp11.so.3"));
    EXPECT_NE(tool::read_libp11_version(file).known, tool::Libp11Version::Known::nothing);
    EXPECT_NE(tool::judge_libp11(file, tool::Link::library).state, tool::State::error);
}

} // namespace
} // namespace Kes::test
