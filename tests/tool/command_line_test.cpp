#include <gtest/gtest.h>

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
    EXPECT_EQ(run.errors, "The following arguments were not expected: 1234 --pin\n" + hint);
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
