// Commands that log in, with a card that reports its final try or a locked PIN.
#include <algorithm>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "json_schema.h"
#include "support/file_tokens.h"
#include "tool_run.h"

namespace Kes::test {
namespace {

const std::string final_try =
    "no login was tried: the token reports that one more wrong PIN locks it; if you are sure of the PIN, add "
    "--final-try";
const std::string locked =
    "no login was tried: the PIN is locked; unlock or reset it with the tool of the card's maker";

class FinalTryTest : public testing::Test {
protected:
    FinalTryTest() { token_.add("01", "ck", "rsa", "My key"); }

    /// Runs a command with the right PIN.
    static ToolRun run(std::vector<std::string> arguments) {
        const std::vector<std::string> more{"--backend",          "pkcs11",   "--module",
                                            FileTokens::module(), "--engine", MARVO_TOOL_ENGINE,
                                            "--pin-stdin"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return run_tool(arguments, std::string(file_token_pin) + "\n");
    }

    std::ptrdiff_t logins() const {
        const Lines calls = tokens_.calls();
        return std::count_if(calls.begin(), calls.end(), [](const std::string& call) {
            return call.find(" C_Login#") != std::string::npos;
        });
    }

    const FileTokens tokens_;
    FileToken token_ = tokens_.add_token("reader");
    const std::vector<std::vector<std::string>> commands_{
        {"list"}, {"sign"}, {"cert"}, {"login", "127.0.0.1:1"}};
};

TEST_F(FinalTryTest, NoCommandUsesItUnasked) {
    token_.set("pin_final_try", "1");
    for (const std::vector<std::string>& command : commands_) {
        const ToolRun result = run(command);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.errors, "marvo " + command[0] + ": " + final_try + "\n");
    }
    EXPECT_EQ(logins(), 0);
}

TEST_F(FinalTryTest, EachCommandUsesItOnRequest) {
    token_.set("pin_final_try", "1");
    for (std::vector<std::string> command : commands_) {
        const std::ptrdiff_t before = logins();
        command.push_back("--final-try");
        EXPECT_EQ(run(command).errors, "");
        EXPECT_GT(logins(), before) << command[0];
    }
}

TEST_F(FinalTryTest, LockedTokenGetsNoPinEvenOnRequest) {
    token_.set("pin_locked", "1");
    for (std::vector<std::string> command : commands_) {
        command.push_back("--final-try");
        const ToolRun result = run(command);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.errors, "marvo " + command[0] + ": " + locked + "\n");
    }
    EXPECT_EQ(logins(), 0);
}

TEST_F(FinalTryTest, OtherTokenDoesNotPreventTheLogin) {
    FileToken other = tokens_.add_token("the reader after it");
    other.set("pin_final_try", "1");
    EXPECT_EQ(run({"cert"}).status, 0);
}

TEST_F(FinalTryTest, RefusalIsInTheJsonObject) {
    token_.set("pin_final_try", "1");
    for (std::vector<std::string> command : commands_) {
        command.push_back("--json");
        const ToolRun result = run(command);
        EXPECT_EQ(result.json()["error"], final_try);
        EXPECT_EQ(schema_violations(command[0], result.output), "");
    }
}

} // namespace
} // namespace Kes::test
