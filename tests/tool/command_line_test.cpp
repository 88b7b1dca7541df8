#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "json_schema.h"
#include "tool_run.h"

namespace Kes::test {
namespace {

const std::string hint = "Run with --help or --help-all for more information.\n";

TEST(CommandLineTest, MissingCommandIsAUsageError) {
    const ToolRun run = run_tool({});
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(run.errors, "A subcommand is required\n" + hint);
}

TEST(CommandLineTest, UnknownOptionIsAUsageError) {
    const ToolRun run = run_tool({"version", "--pin", "1234"});
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(run.errors, "These options do not exist: --pin\nAn argument was not expected\n" + hint);
}

TEST(CommandLineTest, UnexpectedArgumentsAreNotRepeated) {
    const std::string options = "These options do not exist: ";
    const std::string argument = "An argument was not expected\n";
    const std::vector<std::pair<std::vector<std::string>, std::string>> runs{
        {{"version", "1234"}, argument},
        {{"version", "-1234"}, argument},
        {{"version", "--1234"}, argument},
        {{"version", "--", "1234"}, argument},
        {{"1234", "version"}, argument},
        {{"version", "-p1234"}, options + "-p\n"},
        {{"version", "-psecret"}, options + "-p\n"},
        {{"version", "--pin=secret"}, options + "--pin\n"},
        {{"version", "--pin1234"}, options + "--pin\n"},
        {{"version", "--pin", "--key-id=7", "secret"}, options + "--pin --key-id\n" + argument}};
    for (const auto& [arguments, text] : runs) {
        const ToolRun run = run_tool(arguments);
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.output, "");
        EXPECT_EQ(run.errors, text + hint);
    }
}

TEST(CommandLineTest, ValueOfALoginFlagIsNotRepeated) {
    for (const char* command : {"list", "doctor"}) {
        const ToolRun run = run_tool({command, "--login=secret"});
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.errors, "login was given a disallowed flag override\n" + hint);
    }
}

TEST(CommandLineTest, WrongAddressIsNotRepeated) {
    const ToolRun run = run_tool({"login", "--pin", "1234"});
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.errors, "server: the address is not of the form HOST:PORT\n" + hint);
}

TEST(CommandLineTest, SettingWithoutEqualsSignIsAUsageError) {
    const ToolRun run = run_tool({"version", "--set", "crypto_if"});
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.errors, "--set: 'crypto_if' is not of the form KEY=VALUE\n" + hint);
}

TEST(CommandLineTest, VersionOptionPrintsTheVersion) {
    const ToolRun run = run_tool({"--version"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output, "marvo " MARVO_VERSION "\n");
    EXPECT_EQ(run.errors, "");
}

TEST(CommandLineTest, JsonStartsWithSchemaAndCommand) {
    const ToolRun run = run_tool({"version", "--json"});
    EXPECT_EQ(run.status, 0);
    EXPECT_TRUE(run.output.starts_with("{\n  \"schema\": 1,\n  \"command\": \"version\",\n")) << run.output;
    EXPECT_EQ(run.json()["marvo"], MARVO_VERSION);
    EXPECT_EQ(schema_violations("version", run.output), "");
}

} // namespace
} // namespace Kes::test
