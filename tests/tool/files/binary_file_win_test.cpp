#include <gtest/gtest.h>

#include "support/support.h"
#include "tool/binary_file.h"

namespace Kes::test {
namespace {

const std::string libraries = KES_TEST_LIBRARIES;

TEST(FindLibraryTest, NameIsSearchedInTheCurrentFolder) {
    EXPECT_EQ(tool::find_library("engine.dll"), "");
    const CurrentFolder current(libraries);
    EXPECT_NE(tool::find_library("engine.dll"), "");
    EXPECT_NE(tool::find_library("engine"), "") << "the loader adds the extension";
}

TEST(FindLibraryTest, NameIsSearchedInPath) {
    const EnvVar path("PATH", libraries);
    EXPECT_NE(tool::find_library("engine.dll"), "");
}

TEST(BinaryFileVersionTest, VersionResourceIsRead) {
    EXPECT_NE(tool::inspect_file(tool::find_library("version.dll")).version, "");
    EXPECT_EQ(tool::inspect_file(libraries + "/engine.dll").version, "");
}

} // namespace
} // namespace Kes::test
