// The DLL in a folder that contains nothing else but libcrypto and the client.
#include "dll_folder.h"
#include "support/expected_log.h"

namespace Kes::test {
namespace {

class EmptyFolderTest : public DllFolder {};

TEST_F(EmptyFolderTest, DllNeedsOnlyLibcrypto) {
    const std::string defaults = dumped_settings(
        {.crypto_if = "capi", .logfile = dir.file("log"), .severity = "info|warn|error|fatal"});
    EXPECT_EQ(run({log_setting, "version_check", "init", "settings", "destroy"}),
              "version_check: 0\ninit: 0\n" + defaults + "\nsettings: 0\ndestroy: 0\n");
    EXPECT_EQ(logged_errors(), Lines());
}

TEST_F(EmptyFolderTest, DefaultLogIsInCurrentFolder) {
    EXPECT_EQ(run({"init", "destroy"}), "init: 0\ndestroy: 0\n");
    EXPECT_TRUE(std::filesystem::exists(current / "ossl_scard.log"));
    EXPECT_FALSE(std::filesystem::exists(folder / "ossl_scard.log"));
}

TEST_F(EmptyFolderTest, WithoutLibcryptoDllFailsToLoadAndClientContinues) {
    std::filesystem::remove(folder / "libcrypto-3-x64.dll");
    EXPECT_EQ(run({"init"}), "ended with 3\n");
}

} // namespace
} // namespace Kes::test
