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

TEST(CommandLineTest, UnknownCommandIsAUsageErrorThatNamesTheNearest) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> rows{
        {{"lst"}, "list"},
        {{"Doctor", "--html", "x"}, "doctor"},
        {{"--json", "cret"}, "cert"},
        {{"1234"}, "list, doctor, login, sign, cert, env or version"},
        {{"--pin", "1234"}, "list, doctor, login, sign, cert, env or version"}};
    for (const auto& [arguments, meant] : rows) {
        const ToolRun run = run_tool(arguments);
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.output, "");
        EXPECT_EQ(run.errors, "This command does not exist; use " + meant + "\n" + hint);
    }
}

TEST(CommandLineTest, OptionsWithoutACommandAreAUsageError) {
    const ToolRun run = run_tool({"--json", "-p1234"});
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

TEST(CommandLineTest, FlagWithAValueIsAUsageErrorThatDoesNotRepeatIt) {
    const std::vector<std::pair<std::string, std::string>> rows{
        {"list", "--login"},        {"doctor", "--login"},   {"version", "--json"},
        {"login", "--insecure"},    {"cert", "--force"},     {"doctor", "--force"},
        {"doctor", "--with-names"}, {"sign", "--pin-stdin"}, {"login", "--final-try"}};
    for (const auto& [command, flag] : rows)
        for (const char* value : {"=1234567", "=secret", "=0"}) {
            const ToolRun run = run_tool({command, flag + value});
            EXPECT_EQ(run.status, 2);
            EXPECT_EQ(run.output, "");
            EXPECT_EQ(run.errors, flag + ": this option takes no value\n" + hint);
        }
}

TEST(CommandLineTest, WrongValueOfAnOptionIsNotRepeated) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> rows{
        {{"login", "a:1", "--tls", "1.1"}, "--tls: use 1.2 or 1.3"},
        {{"login", "a:1", "--tls", "1234"}, "--tls: use 1.2 or 1.3"},
        {{"login", "a:1", "--timeout", "secret"}, "--timeout: use a whole number from 1 to 3600"},
        {{"login", "a:1", "--timeout", "0"}, "--timeout: use a whole number from 1 to 3600"},
        {{"login", "a:1", "--timeout", "3601"}, "--timeout: use a whole number from 1 to 3600"},
        {{"login", "a:1", "--timeout", "10s"}, "--timeout: use a whole number from 1 to 3600"},
        {{"login", "a:1", "--timeout", "-0"}, "--timeout: use a whole number from 1 to 3600"},
        {{"login", "a:1", "--ca", "/1234"}, "--ca: no file has this name"},
        {{"login", "a:1", "--ca", "/"}, "--ca: no file has this name"},
        {{"cert", "--format", "1234"}, "--format: use pem or der"},
        {{"cert", "--format", "DER"}, "--format: use der"},
        {{"env", "--shell", "1234"}, "--shell: use sh, cmd or powershell"}};
    for (const auto& [arguments, text] : rows) {
        const ToolRun run = run_tool(arguments);
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.output, "");
        EXPECT_EQ(run.errors, text + "\n" + hint);
    }
}

TEST(CommandLineTest, HelpNamesTheKindOfEachValueOnce) {
    const std::string help = run_tool({"login", "--help"}).output;
    EXPECT_NE(help.find("  --ca FILE Excludes: --insecure\n"), std::string::npos) << help;
    EXPECT_NE(help.find("  --timeout SECONDS  "), std::string::npos) << help;
    EXPECT_NE(help.find("  --tls VERSION:{1.2,1.3}  "), std::string::npos) << help;
}

TEST(CommandLineTest, WrongAddressIsNotRepeated) {
    const ToolRun run = run_tool({"login", "--pin", "1234"});
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.errors, "server: the address is not of the form HOST:PORT\n" + hint);
}

TEST(CommandLineTest, SettingWithoutEqualsSignIsAUsageError) {
    const ToolRun run = run_tool({"version", "--set", "crypto_if"});
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.errors, "--set: the value is not of the form KEY=VALUE\n" + hint);
}

/// The error of a command line that is wrong.
std::string usage_error(const std::vector<std::string>& arguments) {
    const ToolRun run = run_tool(arguments);
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.output, "");
    return run.errors;
}

TEST(CommandLineTest, UnknownSettingIsAUsageErrorOfEveryCommand) {
    const std::vector<std::vector<std::string>> commands{
        {"list"}, {"doctor"}, {"login", "localhost:443"}, {"sign"}, {"cert"}, {"env"}, {"version"}};
    for (std::vector<std::string> command : commands) {
        command.insert(command.end(), {"--set", "crpyto_if=pkcs11"});
        EXPECT_EQ(usage_error(command), "--set: no setting has this key; use crypto_if\n" + hint)
            << command[0];
    }
}

TEST(CommandLineTest, UnknownSettingNamesTheNearestKey) {
    const std::vector<std::pair<std::string, std::string>> rows{{"logfil", "logfile"},
                                                                {"kuse_filter", "key_usage_filter"},
                                                                {"ossl_scard_cfg_logfile", "logfile"},
                                                                {"LOGFILE_APEND", "logfile_append"}};
    for (const auto& [key, meant] : rows)
        EXPECT_EQ(usage_error({"list", "--set", "logfile=x", "--set", key + "=1"}),
                  "--set: no setting has this key; use " + meant + "\n" + hint);
    EXPECT_EQ(
        usage_error({"list", "--set", "1234=1"}),
        "--set: no setting has this key; use crypto_if, capi_openssl_engine_dll, capi_csp_name, "
        "capi_key_type, pkcs11_openssl_engine_dll, pkcs11_module_dll, capi_store_openssl_engine_dll, "
        "capi_store_cert_store_name, priv_key_name, cert_name, key_usage_filter_type, key_usage_filter, "
        "ext_key_usage_filter_type, ext_key_usage_filter, logfile, logfile_severity or logfile_append\n" +
            hint);
}

TEST(CommandLineTest, UnknownBackEndIsAUsageError) {
    EXPECT_EQ(usage_error({"list", "--backend", "PKCS11"}),
              "--backend: no back-end has this name; use pkcs11\n" + hint);
    EXPECT_EQ(usage_error({"list", "--set", "crypto_if=capi-store"}),
              "--set: no back-end has this name; use capi_store\n" + hint);
    EXPECT_EQ(usage_error({"version", "--backend", "1234"}),
              "--backend: no back-end has this name; use capi, pkcs11 or capi_store\n" + hint);
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
