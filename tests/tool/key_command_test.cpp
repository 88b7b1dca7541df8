// The commands that load a key: sign, cert, and login as far as it needs no server.
#include <fstream>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "json_schema.h"
#include "support/certificates.h"
#include "support/file_tokens.h"
#include "support/process.h"
#include "support/terminal.h"
#include "tool_run.h"

namespace Kes::test {
namespace {

class KeyCommandTest : public testing::Test {
protected:
    KeyCommandTest() { token.add("01", "ck", "rsa", "My key"); }

    /// Runs a command with the token's PIN.
    ToolRun run(std::vector<std::string> arguments) const {
        const std::vector<std::string> settings{"--backend",          "pkcs11",        "--module",
                                                FileTokens::module(), "--engine",      MARVO_TOOL_ENGINE,
                                                "--pin-env",          "MARVO_TEST_PIN"};
        arguments.insert(arguments.end(), settings.begin(), settings.end());
        const EnvVar pin("MARVO_TEST_PIN", file_token_pin);
        return run_tool(arguments);
    }

    FileTokens tokens;
    FileToken token = tokens.add_token("reader");
    const TempDir dir;
    const std::vector<std::vector<std::string>> commands{{"sign"}, {"cert"}, {"login", "127.0.0.1:1"}};
};

TEST_F(KeyCommandTest, SignVerifiesEachAlgorithmOfAnRsaKey) {
    const ToolRun result = run({"sign", "--json"});
    EXPECT_EQ(result.status, 0) << result.errors;
    const auto json = result.json();
    EXPECT_EQ(json["command"], "sign");
    EXPECT_TRUE(json["success"]);
    EXPECT_EQ(json["key"], nlohmann::json({{"name", "Card 1: My key"}, {"id", "%01"}, {"type", "RSA 2048"}}));
    Lines algorithms;
    for (const auto& signature : json["signatures"]) {
        algorithms.push_back(signature["algorithm"]);
        EXPECT_EQ(signature["error"], "");
        EXPECT_GT(signature["milliseconds"], 0);
    }
    EXPECT_EQ(algorithms,
              (Lines{"rsa_pss_rsae_sha256", "rsa_pss_rsae_sha384", "rsa_pss_rsae_sha512", "rsa_pkcs1_sha256",
                     "rsa_pkcs1_sha384", "rsa_pkcs1_sha512", "rsa_pkcs1_sha1"}));
}

TEST_F(KeyCommandTest, SignPrintsOneLineForEachAlgorithm) {
    token.add("02", "ck", "ec", "EC key");
    const ToolRun result = run({"sign", "--key", "%02"});
    EXPECT_EQ(result.status, 0) << result.errors;
    const Lines lines = split_lines(result.output);
    ASSERT_EQ(lines.size(), 5U) << result.output;
    EXPECT_EQ(lines[0], "key: Card 1: EC key (EC 256)");
    EXPECT_TRUE(lines[1].starts_with("ecdsa_secp256r1_sha256: right, ")) << lines[1];
    EXPECT_TRUE(lines[1].ends_with(" ms")) << lines[1];
}

TEST_F(KeyCommandTest, SignFailsWhenTheCertificateBelongsToAnotherKey) {
    FileToken other = tokens.add_token("the reader after it");
    other.add("01", "c", "encipher", "Another certificate");
    std::filesystem::copy_file(other.folder() / "encipher.crt", token.folder() / "rsa.crt",
                               std::filesystem::copy_options::overwrite_existing);
    const ToolRun result = run({"sign"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.output.find("rsa_pkcs1_sha256: the certificate does not verify the signature\n"),
              std::string::npos)
        << result.output << result.errors;
}

TEST_F(KeyCommandTest, SignReportsWhatTheCardCannotDo) {
    token.set("mechanisms", "rsa_pkcs");
    const ToolRun result = run({"sign"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.output.find("rsa_pss_rsae_sha256: cannot sign: "), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("rsa_pkcs1_sha256: right, "), std::string::npos) << result.output;
}

TEST_F(KeyCommandTest, JsonOfSignFollowsItsSchema) {
    token.set("mechanisms", "rsa_pkcs");
    const ToolRun result = run({"sign", "--json"});
    EXPECT_FALSE(result.json()["signatures"][0]["success"]);
    EXPECT_TRUE(result.json()["signatures"][3]["success"]);
    EXPECT_EQ(schema_violations("sign", result.output), "");
}

TEST_F(KeyCommandTest, JsonOfCertFollowsItsSchema) {
    EXPECT_EQ(schema_violations("cert", run({"cert", "--json"}).output), "");
    const ToolRun saved = run({"cert", "--json", "--out", dir.file("saved")});
    EXPECT_EQ(saved.json()["file"], dir.file("saved"));
    EXPECT_EQ(schema_violations("cert", saved.output), "");
}

TEST_F(KeyCommandTest, JsonOfAFailureFollowsTheSchema) {
    for (std::vector<std::string> command : commands) {
        command.insert(command.end(), {"--json", "--key", "%07"});
        const ToolRun result = run(command);
        EXPECT_EQ(result.status, 1);
        const std::string error =
            "the library offers no key with this id, but these:\n  --key %01  Card 1: My key";
        EXPECT_EQ(result.json(), nlohmann::json({{"schema", 1}, {"command", command[0]}, {"error", error}}));
        EXPECT_EQ(result.errors, "marvo " + command[0] + ": " + error + "\n");
        EXPECT_EQ(schema_violations(command[0], result.output), "");
    }
}

TEST_F(KeyCommandTest, SeveralKeysNeedAChoice) {
    token.add("02", "ck", "ec", "EC key");
    const ToolRun result = run({"sign"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "marvo sign: there are several keys; choose one of them:\n"
                             "  --key %01  Card 1: My key\n  --key %02  Card 1: EC key\n");
}

TEST_F(KeyCommandTest, KeysWithTheSameIdAreOneChoice) {
    token.add("01", "ck", "ec", "Second key");
    const std::string key = "  --key %01  Card 1: My key (";
    EXPECT_EQ(run({"sign"}).errors, "marvo sign: there are several keys; choose one of them:\n" + key +
                                        "another key with this id cannot be selected by it)\n");
    token.add("01", "ck", "encipher", "Third key");
    EXPECT_EQ(run({"sign"}).errors, "marvo sign: there are several keys; choose one of them:\n" + key +
                                        "2 other keys with this id cannot be selected by it)\n");
    EXPECT_EQ(split_lines(run({"sign", "--key", "%01"}).output)[0], "key: Card 1: My key (RSA 2048)");
}

TEST_F(KeyCommandTest, UnknownKeyIsAnErrorThatNamesTheOthers) {
    const ToolRun result = run({"cert", "--key", "%07"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors, "marvo cert: the library offers no key with this id, but these:\n"
                             "  --key %01  Card 1: My key\n");
}

TEST_F(KeyCommandTest, TokenWithoutKeyIsReported) {
    tokens.add_token("a reader before it");
    const ToolRun result = run({"cert"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors, "marvo cert: the library offers no key; \"marvo list\" says why\n");
}

TEST_F(KeyCommandTest, CertPrintsPem) {
    const ToolRun result = run({"cert"});
    EXPECT_EQ(result.status, 0) << result.errors;
    std::ofstream(dir.file("printed")) << result.output;
    EXPECT_EQ(der_of(read_pem_certificate(dir.file("printed")).get()),
              der_of(read_pem_certificate(token.folder() / "rsa.crt").get()));
}

TEST_F(KeyCommandTest, CertSavesDerAndDoesNotOverwriteIt) {
    const std::string file = dir.file("saved");
    const ToolRun first = run({"cert", "--format", "der", "--out", file});
    EXPECT_EQ(first.status, 0) << first.errors;
    EXPECT_EQ(first.output, "");
    EXPECT_EQ(read_bytes(file), der_of(read_pem_certificate(token.folder() / "rsa.crt").get()));
    const ToolRun second = run({"cert", "--out", file});
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(second.errors, "marvo cert: the file " + file + " exists; --force overwrites it\n");
    EXPECT_EQ(read_bytes(file), der_of(read_pem_certificate(token.folder() / "rsa.crt").get()));
    EXPECT_EQ(run({"cert", "--force", "--out", file}).status, 0);
    EXPECT_TRUE(read_file(file).starts_with("-----BEGIN CERTIFICATE-----"));
}

TEST_F(KeyCommandTest, CertReportsAFolderThatDoesNotExist) {
    const std::string file = dir.file("absent/file");
    EXPECT_EQ(run({"cert", "--out", file}).errors,
              "marvo cert: cannot create the file " + file + ": No such file or directory\n");
}

TEST_F(KeyCommandTest, OutputFileIsCheckedBeforeTheLogin) {
    const std::string absent = dir.file("absent/file");
    const std::string present = dir.file("present");
    std::ofstream(present) << "text";
    const std::vector<std::pair<std::vector<std::string>, std::string>> rows{
        {{"--out", absent}, "cannot create the file " + absent + ": No such file or directory"},
        {{"--out", present}, "the file " + present + " exists; --force overwrites it"},
        {{"--out", dir.path().string(), "--force"},
         "cannot create the file " + dir.path().string() + ": Is a directory"}};
    for (const auto& [options, error] : rows) {
        std::vector<std::string> command{"cert"};
        command.insert(command.end(), options.begin(), options.end());
        EXPECT_EQ(run(command).errors, "marvo cert: " + error + "\n");
    }
    EXPECT_EQ(tokens.calls(), Lines());
    EXPECT_EQ(read_file(present), "text");
}

TEST_F(KeyCommandTest, CheckOfTheOutputFileLeavesNoTrace) {
    const std::string present = dir.file("present");
    std::ofstream(present) << "text";
    EXPECT_EQ(run({"cert", "--key", "%07", "--out", dir.file("absent")}).status, 1);
    EXPECT_EQ(run({"cert", "--key", "%07", "--out", present, "--force"}).status, 1);
    EXPECT_FALSE(std::filesystem::exists(dir.file("absent")));
    EXPECT_EQ(read_file(present), "text");
}

TEST_F(KeyCommandTest, CertWritesToAPipe) {
    const EnvVar pin("MARVO_TEST_PIN", file_token_pin);
    const std::string script = R"(mkfifo "$0"; cat "$0" & timeout 30 "$@"; wait)";
    const std::string output =
        run_program({"/bin/sh", "-c", script, dir.file("pipe"), MARVO_TOOL_PROGRAM, "cert", "--backend",
                     "pkcs11", "--module", FileTokens::module(), "--engine", MARVO_TOOL_ENGINE, "--pin-env",
                     "MARVO_TEST_PIN", "--force", "--out", dir.file("pipe")});
    EXPECT_TRUE(output.starts_with("-----BEGIN CERTIFICATE-----\n")) << output;
}

TEST_F(KeyCommandTest, AuthoritiesAreCheckedBeforeTheLogin) {
    const std::string file = dir.file("no-certificate");
    std::ofstream(file) << "text\n";
    const ToolRun result = run({"login", "127.0.0.1:1", "--ca", file});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors,
              "marvo login: cannot read the authorities in " + file + ": no certificate or crl found\n");
    EXPECT_EQ(tokens.calls(), Lines());
}

TEST_F(KeyCommandTest, NamesInErrorsCannotControlTheTerminal) {
    const std::string file = dir.file("absent\x1b[2J/file");
    const ToolRun result = run({"cert", "--json", "--out", file});
    EXPECT_EQ(result.errors, "marvo cert: cannot create the file " + dir.file("absent\\x1b[2J/file") +
                                 ": No such file or directory\n");
    EXPECT_EQ(result.json()["error"], "cannot create the file " + file + ": No such file or directory");
}

TEST_F(KeyCommandTest, CertAndListPrintTheSameFactsInTheSameOrder) {
    const auto listed = nlohmann::ordered_json::parse(run({"list", "--json"}).output)["keys"][0];
    const auto json = nlohmann::ordered_json::parse(run({"cert", "--json"}).output);
    EXPECT_EQ(json["certificate"].dump(), listed["certificate"].dump());
    EXPECT_EQ(json["key"]["name"], listed["name"]);
    EXPECT_EQ(json["key"]["id"], listed["id"]);
}

TEST_F(KeyCommandTest, CertHasFactsAndPemInJson) {
    const auto json = nlohmann::ordered_json::parse(run({"cert", "--json"}).output);
    Lines members;
    for (const auto& member : json.items())
        members.push_back(member.key());
    EXPECT_EQ(members, (Lines{"schema", "command", "key", "certificate", "pem", "file"}));
    EXPECT_EQ(json["certificate"]["subject"], "CN=Rita RSA,O=Test Makers,C=AT");
    EXPECT_EQ(json["certificate"]["issuer"], "CN=Test CA,O=Test Makers,C=AT");
    EXPECT_TRUE(json["pem"].get<std::string>().starts_with("-----BEGIN CERTIFICATE-----"));
}

TEST_F(KeyCommandTest, PromptNamesTheToken) {
    const std::vector<std::pair<std::string, std::string>> rows{{"Eva's card", "Eva's card"},
                                                                {"\x1b[2Jx", "\\x1b[2Jx"}};
    for (const auto& [label, shown] : rows) {
        token.set("label", label);
        for (const std::vector<std::string>& command : commands) {
            std::vector<std::string> line{MARVO_TOOL_PROGRAM};
            line.insert(line.end(), command.begin(), command.end());
            line.insert(line.end(), {"--backend", "pkcs11", "--module", FileTokens::module()});
            Terminal terminal;
            terminal.start(line);
            EXPECT_EQ(terminal.read_until(": "), "PIN of " + shown + ": ");
            terminal.wait_until_echo_is_off();
            terminal.type("\n");
            EXPECT_EQ(terminal.read_to_end(),
                      "\r\nmarvo " + command[0] + ": no PIN was given: the input is empty\r\n");
            EXPECT_EQ(terminal.wait(), 1);
        }
    }
}

TEST_F(KeyCommandTest, LongPinAtThePromptIsRejected) {
    for (const std::size_t length : {std::size_t{256}, std::size_t{257}, std::size_t{1000}}) {
        Terminal terminal;
        terminal.start({MARVO_TOOL_PROGRAM, "cert", "--backend", "pkcs11", "--module", FileTokens::module()});
        terminal.read_until(": ");
        terminal.wait_until_echo_is_off();
        terminal.type(std::string(length, '7') + "\n");
        EXPECT_EQ(terminal.read_to_end(),
                  "\r\nmarvo cert: the PIN from the input is longer than 255 bytes\r\n");
        EXPECT_EQ(terminal.wait(), 1);
    }
}

TEST_F(KeyCommandTest, WrongPinIsTriedOnce) {
    const EnvVar pin("MARVO_TEST_WRONG_PIN", "1");
    token.set("tries", "3");
    const ToolRun result = run_tool({"cert", "--backend", "pkcs11", "--module", FileTokens::module(),
                                     "--engine", MARVO_TOOL_ENGINE, "--pin-env", "MARVO_TEST_WRONG_PIN"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.errors.find("PIN incorrect"), std::string::npos) << result.errors;
    EXPECT_EQ(read_file((token.folder() / "tries_left").string()), "2\n");
}

} // namespace
} // namespace Kes::test
