#include "tool/known_modules_posix.h"

#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>

#include "support/support.h"
#include "tool/doctor/loaded_files.h"
#include "tool/suggested_settings.h"

namespace Kes::test {
namespace {

/// Creates an empty file with its folder.
void create(const std::string& file) {
    std::filesystem::create_directories(std::filesystem::path(file).parent_path());
    std::ofstream{file};
}

TEST(KnownModulesTest, OpenScIsPreferredInAnyFolder) {
    const TempDir dir;
    const std::vector<std::string> folders{dir.file("first"), dir.file("second")};
    EXPECT_EQ(tool::find_known_module(folders), "");
    for (const char* module : {"second/pkcs11/libsofthsm2.so", "first/softhsm/libsofthsm2.so",
                               "second/pkcs11/opensc-pkcs11.so", "first/opensc-pkcs11.so"}) {
        create(dir.file(module));
        EXPECT_EQ(tool::find_known_module(folders), dir.file(module));
    }
}

TEST(KnownModulesTest, ModuleBesideLibcryptoIsSuggested) {
    const auto folder = std::filesystem::canonical(tool::libcrypto_in_use()).parent_path();
    ASSERT_TRUE(std::filesystem::exists(folder / "opensc-pkcs11.so")) << "opensc-pkcs11 is not installed";
    const std::pair<std::string, std::string> expected{"pkcs11_module_dll",
                                                       (folder / "opensc-pkcs11.so").string()};
    const tool::Variables settings = tool::suggest_settings();
    EXPECT_EQ(std::count(settings.begin(), settings.end(), expected), 1);
}

} // namespace
} // namespace Kes::test
