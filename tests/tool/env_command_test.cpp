#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "json_schema.h"
#include "support/process.h"
#include "support/support.h"
#include "tool_run.h"

namespace Kes::test {
namespace {

TEST(EnvCommandTest, ShellReadsBackWhatIsPrinted) {
    const EnvVar module("ossl_scard_cfg_pkcs11_module_dll", "/a b/it's $HOME \"x\"\\.so");
    const ToolRun run = run_tool({"env"});
    EXPECT_EQ(run.status, 0) << run.errors;
    const EnvVar script("MARVO_TEST_SCRIPT", run.output);
    EXPECT_EQ(shell_output(R"(unset ossl_scard_cfg_pkcs11_module_dll; eval "$MARVO_TEST_SCRIPT"
                              printf %s "$ossl_scard_cfg_pkcs11_module_dll")"),
              "/a b/it's $HOME \"x\"\\.so");
}

TEST(EnvCommandTest, OptionsArePrintedForTheChosenShell) {
    const ToolRun run =
        run_tool({"env", "--shell", "powershell", "--backend", "capi", "--set", "logfile=C:\\l"});
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_NE(run.output.find("$env:ossl_scard_cfg_crypto_if = 'capi'\n"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("$env:ossl_scard_cfg_logfile = 'C:\\l'\n"), std::string::npos) << run.output;
}

TEST(EnvCommandTest, EngineIsSuggestedWhereTheDefaultDoesNotWork) {
    const ToolRun run = run_tool({"env"});
    EXPECT_NE(run.output.find("export ossl_scard_cfg_crypto_if='pkcs11'\n"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("export ossl_scard_cfg_pkcs11_openssl_engine_dll='" MARVO_TOOL_ENGINE "'\n"),
              std::string::npos)
        << run.output;
}

TEST(EnvCommandTest, MistakesAreReportedApartFromTheSettings) {
    const EnvVar misspelt("ossl_scard_cfg_crypto", "pkcs11");
    const EnvVar backend("ossl_scard_cfg_crypto_if", "PKCS11");
    const ToolRun run = run_tool({"env"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output.find("ossl_scard_cfg_crypto="), std::string::npos) << run.output;
    EXPECT_NE(
        run.errors.find("marvo env: ossl_scard_cfg_crypto is not a setting and has no effect; rename it to "
                        "ossl_scard_cfg_crypto_if\n"),
        std::string::npos)
        << run.errors;
    EXPECT_NE(
        run.errors.find("marvo env: ossl_scard_cfg_crypto_if=PKCS11 names no back-end; set it to pkcs11\n"),
        std::string::npos)
        << run.errors;
}

TEST(EnvCommandTest, JsonListsVariablesAndMistakes) {
    const ToolRun run = run_tool({"env", "--json", "--set", "logfile_append=yes"});
    EXPECT_EQ(run.status, 1);
    const auto json = run.json();
    EXPECT_EQ(
        json["variables"][0],
        nlohmann::json({{"name", "ossl_scard_cfg_crypto_if"}, {"value", "pkcs11"}, {"suggested", true}}));
    EXPECT_EQ(json["mistakes"][0]["variable"], "ossl_scard_cfg_logfile_append");
    EXPECT_EQ(json["mistakes"][0]["kind"], "value");
}

TEST(EnvCommandTest, JsonFollowsItsSchema) {
    EXPECT_EQ(schema_violations("env", run_tool({"env", "--json"}).output), "");
    const EnvVar misspelt("ossl_scard_cfg_crypto", "pkcs11");
    const ToolRun run = run_tool({"env", "--json", "--set", "logfile_append=yes"});
    EXPECT_EQ(run.json()["mistakes"].size(), 2U) << run.output;
    EXPECT_EQ(schema_violations("env", run.output), "");
}

} // namespace
} // namespace Kes::test
