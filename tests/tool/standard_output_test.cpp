// Commands whose standard output cannot be written.
#include <gtest/gtest.h>

#include "support/file_tokens.h"
#include "tool_run.h"

namespace Kes::test {
namespace {

const std::string no_space = "marvo: cannot write to standard output: No space left on device\n";

void expect_failure(std::vector<std::string> arguments) {
    for (const bool as_json : {false, true}) {
        if (as_json) arguments.emplace_back("--json");
        const ToolRun run = run_tool_without_space(arguments, std::string(file_token_pin) + "\n");
        EXPECT_EQ(run.status, 1) << arguments[0];
        EXPECT_EQ(run.errors, no_space) << arguments[0];
    }
}

TEST(StandardOutputTest, CommandsWithoutACardFailWithoutSpace) {
    expect_failure({"version"});
    expect_failure({"env", "--backend", "pkcs11"});
}

TEST(StandardOutputTest, CommandsWithACardFailWithoutSpace) {
    const FileTokens tokens;
    FileToken token = tokens.add_token("reader");
    token.add("01", "ck", "rsa", "My key");
    const EnvVar backend("ossl_scard_cfg_crypto_if", "pkcs11");
    const EnvVar module("ossl_scard_cfg_pkcs11_module_dll", FileTokens::module());
    const EnvVar engine("ossl_scard_cfg_pkcs11_openssl_engine_dll", MARVO_TOOL_ENGINE);
    for (const char* command : {"list", "doctor", "sign", "cert"})
        expect_failure({command, "--pin-stdin"});
    expect_failure({"login", "127.0.0.1:1", "--pin-stdin"});
}

TEST(StandardOutputTest, HelpFailsWithoutSpace) {
    for (const char* option : {"--help", "--help-all", "--version"}) {
        const ToolRun run = run_tool_without_space({option});
        EXPECT_EQ(run.status, 1) << option;
        EXPECT_EQ(run.errors, no_space) << option;
    }
}

TEST(StandardOutputTest, ReasonOfAFailedCommandIsReportedBeforeTheLostOutput) {
    const EnvVar backend("ossl_scard_cfg_crypto_if", "capi");
    const ToolRun run = run_tool_without_space({"list", "--json"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errors, "marvo list: capi_backend:15 Kes::capi_backend::probe(): crypto interface capi is "
                          "available on Windows only: val=4 (unsupported)\n"
                          "Run \"marvo doctor\", which says what is wrong and what to do.\n" +
                              no_space);
}

} // namespace
} // namespace Kes::test
