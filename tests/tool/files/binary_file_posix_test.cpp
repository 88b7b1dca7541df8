#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <openssl/opensslv.h>

#include "support/support.h"
#include "tool/binary_file.h"

namespace Kes::test {
namespace {

namespace fs = std::filesystem;

const std::string libraries = KES_TEST_LIBRARIES;

TEST(FindLibraryTest, NameIsSearchedWhereTheLoaderSearches) {
    EXPECT_EQ(tool::find_library("engine.so"), "");
    const CurrentFolder current(libraries);
    EXPECT_EQ(tool::find_library("engine.so"), "") << "the loader does not search the current folder";
    const EnvVar path("LD_LIBRARY_PATH", libraries);
    EXPECT_EQ(tool::find_library("engine.so"), libraries + "/engine.so");
}

TEST(FindLibraryTest, LibraryOfTheSystemIsFound) {
    EXPECT_TRUE(fs::exists(tool::find_library("libelf.so.1")));
    const std::string unloaded = tool::find_library("libgnutls.so.30");
    EXPECT_TRUE(fs::exists(unloaded)) << unloaded;
}

TEST(FindLibraryTest, NameThatTheLoaderCannotBeAskedForIsAnError) {
    EXPECT_EQ(error_text([] { tool::find_library("my engine.so"); }),
              "cannot search for 'my engine.so': the name contains a space or a colon");
}

TEST(BinaryFileSearchTest, VariableOfTheLoaderAppliesToDependencies) {
    const EnvVar path("LD_LIBRARY_PATH", libraries + "/elsewhere");
    EXPECT_FALSE(tool::inspect_file(libraries + "/needing.so").missing());
}

} // namespace
} // namespace Kes::test
