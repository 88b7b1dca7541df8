#include <algorithm>

#include "support/core_fixture.h"
#include "utils/windows_api.h"

/// Behaviour that differs from other systems.
namespace Kes::test {
namespace {

class OsslScardIfImpWinTest : public ScardTest {
protected:
    TempDir dir;
};

TEST_F(OsslScardIfImpWinTest, LogFileNamedWithTwoBlanksCannotBeOpened) {
    OsslScardCfg& cfg = make_config();
    cfg.set_logfile("  "); // Windows removes blanks from the end of a name
    EXPECT_EQ(scard().init(&cfg), 1);
    EXPECT_EQ(last_error(),
              "logger:90 Kes::Logger::register_sink(): error opening logfile '  ': val=12 (open_failed)");
    EXPECT_EQ(state(), "initialized");
}

TEST_F(OsslScardIfImpWinTest, NamesOfEnvironmentVariablesAreNotCaseSensitive) {
    const EnvVar variable("OSSL_Scard_cfg_PKCS11_MODULE_DLL", "env.dll");
    ASSERT_EQ(scard().init(&make_config()), 0);
    EXPECT_STREQ(scard().get_config_used()->get_pkcs11_module_dll(), "env.dll");
}

TEST_F(OsslScardIfImpWinTest, VariableSetOnlyInTheSystemEnvironmentIsIgnored) {
    ASSERT_TRUE(::SetEnvironmentVariableA("ossl_scard_cfg_pkcs11_module_dll", "env.dll"));
    EXPECT_EQ(scard().init(&make_config()), 0);
    EXPECT_STREQ(scard().get_config_used()->get_pkcs11_module_dll(), "module.so");
    EXPECT_TRUE(::SetEnvironmentVariableA("ossl_scard_cfg_pkcs11_module_dll", nullptr));
}

TEST_F(OsslScardIfImpWinTest, EveryLineOfTheLogIncludingTheDumpEndsWithCrLf) {
    OsslScardCfg& cfg = make_config();
    cfg.set_logfile(dir.file("log").c_str());
    ASSERT_EQ(scard().init(&cfg), 0);
    scard().destroy();
    const std::string bytes = read_file(dir.file("log"));
    EXPECT_THAT(bytes, testing::HasSubstr(": using OpenSSL smart card interface version 4\r\n"));
    EXPECT_THAT(bytes, testing::HasSubstr("configuration settings:\r\n  crypto_if=pkcs11\r\n"));
    for (std::size_t at = bytes.find('\n'); at != std::string::npos; at = bytes.find('\n', at + 1))
        EXPECT_EQ(bytes.substr(at - 1, 2), "\r\n") << at;
    EXPECT_EQ(std::count(bytes.begin(), bytes.end(), '\r'), std::count(bytes.begin(), bytes.end(), '\n'));
}

} // namespace
} // namespace Kes::test
