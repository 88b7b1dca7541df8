#include <algorithm>
#include <gtest/gtest.h>
#include <regex>

#include <nlohmann/json.hpp>

#include "json_schema.h"
#include "support/file_tokens.h"
#include "support/terminal.h"
#include "token_folder.h"
#include "tool_run.h"

namespace Kes::test {
namespace {

const std::string other_tokens = // SoftHSM always shows an empty slot for the next token
    "Token      (no label) (SoftHSM project SoftHSM v2) in SoftHSM slot ID SLOT\n"
    "           not used, because the library takes the first token\n";

const std::string head =
    "Back-end   pkcs11\n"
    "Module     " MARVO_SOFTHSM_MODULE "\n"
    "Token      Card (SoftHSM project SoftHSM v2, serial SERIAL) in SoftHSM slot ID SLOT\n"
    "           login required\n" +
    other_tokens;

const std::string hint = "Run \"marvo doctor\", which says what is wrong and what to do.\n";

/// The text of a run, with "DATES" for the validity, and the keys in alphabetical order, because SoftHSM
/// lists them in an order of its own.
std::string text_of_run(const ToolRun& run) {
    static const std::regex dates("[0-9]{4}-[0-9]{2}-[0-9]{2} to [0-9]{4}-[0-9]{2}-[0-9]{2}");
    const std::string text = std::regex_replace(TokenFolder::masked(run.output), dates, "DATES");
    std::vector<std::string> blocks;
    std::size_t begin = 0;
    for (std::size_t end = text.find("\n\n"); end != std::string::npos; end = text.find("\n\n", begin)) {
        blocks.push_back(text.substr(begin, end - begin + 1));
        begin = end + 2;
    }
    blocks.push_back(text.substr(begin));
    std::sort(blocks.begin() + 1, blocks.end());
    std::string sorted;
    for (const std::string& block : blocks)
        sorted += block + "\n";
    return sorted;
}

std::string first_line(const std::string& text) { return text.substr(0, text.find('\n')); }

std::vector<std::string> with_pin(const TokenFolder& tokens, std::vector<std::string> options = {}) {
    options.insert(options.begin(), {"list", "--pin-file", tokens.pin_file()});
    return options;
}

TEST(ListTest, EveryKeyIsShownWithTheReasonOfItsVerdict) {
    const TokenFolder tokens("Card");
    tokens.add_key("Card", {"--id", "01", "--name", "Sign", "--subject", "/C=AT/O=Makers/CN=Zoë Weiß"});
    tokens.add_key("Card", {"--id", "02", "--name", "Encipher", "--ku", "keyEncipherment", "--eku",
                            "emailProtection", "--key", "ec:P-256"});
    tokens.add_key("Card", {"--id", "03", "--name", "Lone", "--no-cert", "--key", "ec:P-256"});
    const ToolRun run =
        run_tool(with_pin(tokens, {"--set", "key_usage_filter_type=1", "--set", "key_usage_filter=0x80"}));
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.errors, "");
    EXPECT_EQ(text_of_run(run), head + "Keys       3 keys, 1 offered\n"
                                       "\n"
                                       "Key - Card: Encipher\n"
                                       "    verdict  not offered: the filter wants digitalSignature, the "
                                       "certificate has keyEncipherment\n"
                                       "    warning  no digitalSignature in key usage\n"
                                       "    warning  no client authentication in extended key usage\n"
                                       "    set_key  type 0, id \"%02\"\n"
                                       "    key      EC, prime256v1, 256 bits\n"
                                       "    subject  CN=Encipher\n"
                                       "    issuer   CN=Soft token CA,O=Throw-away\n"
                                       "    serial   SERIAL\n"
                                       "    valid    DATES (30 days left)\n"
                                       "    usage    keyEncipherment\n"
                                       "    extended emailProtection\n"
                                       "\n"
                                       "Key - Card: Lone\n"
                                       "    verdict  not offered: no certificate on the token has its id\n"
                                       "    set_key  type 0, id \"%03\"\n"
                                       "\n"
                                       "Key 0 Card: Sign\n"
                                       "    verdict  offered\n"
                                       "    set_key  type 0, id \"%01\"\n"
                                       "    key      RSA, 2048 bits\n"
                                       "    subject  CN=Zoë Weiß,O=Makers,C=AT\n"
                                       "    issuer   CN=Soft token CA,O=Throw-away\n"
                                       "    serial   SERIAL\n"
                                       "    valid    DATES (30 days left)\n"
                                       "    usage    digitalSignature\n"
                                       "    extended clientAuth\n"
                                       "\n");
    const ToolRun json = run_tool(with_pin(tokens, {"--json"}));
    EXPECT_EQ(schema_violations("list", json.output), "");
    EXPECT_EQ(json.json()["keys"].size(), 3U);
}

TEST(ListTest, WithoutAPinTheOutputSaysWhatIsNotVisible) {
    const TokenFolder tokens("Card");
    tokens.add_key("Card", {"--id", "7f", "--name", "\x1b[31mRed", "--subject", "/CN=Old", "--expired",
                            "--key", "ec:P-384"});
    const ToolRun run = run_tool({"list"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.errors, "");
    const std::regex days("expired [0-9]{4} days ago");
    EXPECT_EQ(std::regex_replace(text_of_run(run), days, "expired DAYS days ago"),
              head + "Note       private keys are not visible without the PIN; certificates are shown\n"
                     "Keys       0 keys, 0 offered\n"
                     "\n"
                     "Certificate Card: \\x1b[31mRed\n"
                     "    verdict  its key would be offered\n"
                     "    warning  expired DAYS days ago\n"
                     "    set_key  type 0, id \"%7f\"\n"
                     "    key      EC, secp384r1, 384 bits\n"
                     "    subject  CN=Old\n"
                     "    issuer   CN=Soft token CA,O=Throw-away\n"
                     "    serial   SERIAL\n"
                     "    valid    DATES (expired)\n"
                     "    usage    digitalSignature\n"
                     "    extended clientAuth\n"
                     "\n");
    const ToolRun json = run_tool({"list", "--json"});
    EXPECT_EQ(schema_violations("list", json.output), "");
    EXPECT_EQ(json.json()["complete"], false);
    EXPECT_EQ(json.json()["certificates_without_key"][0]["name"], "Card: \x1b[31mRed");
}

TEST(ListTest, OtherTokensAreListedAsNotUsed) {
    const TokenFolder tokens("Card");
    tokens.add_token("Other");
    const ToolRun run = run_tool(with_pin(tokens, {"--json"}));
    ASSERT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(schema_violations("list", run.output), "");
    const nlohmann::json found = run.json()["tokens"];
    ASSERT_EQ(found.size(), 3U);
    EXPECT_EQ(found[0]["used"], true);
    EXPECT_FALSE(found[0].contains("reason"));
    for (const std::size_t i : {1U, 2U}) {
        EXPECT_EQ(found[i].at("used"), false);
        EXPECT_EQ(found[i].at("reason"), "not used, because the library takes the first token");
    }
}

TEST(ListTest, FailedLoginShowsTheTokenAndTheLibrarysError) {
    const TokenFolder tokens("Card");
    const ToolRun run = run_tool({"list", "--pin-stdin"}, "wrong pin\n");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(TokenFolder::masked(run.output), head);
    const std::string error =
        "libp11_helper:190 Kes::Libp11Init::authenticate(): PKCS11_login() failed: rc=-1";
    EXPECT_EQ(first_line(run.errors), "marvo list: " + error);
    EXPECT_EQ(run.errors.find("wrong pin"), std::string::npos);
    const ToolRun json = run_tool({"list", "--pin-stdin", "--json"}, "wrong pin\n");
    EXPECT_EQ(json.status, 1);
    EXPECT_EQ(schema_violations("list", json.output), "");
    EXPECT_EQ(first_line(json.json()["error"]), error);
    EXPECT_EQ(json.json()["tokens"][0]["label"], "Card");
}

TEST(ListTest, LoginAsksForThePinOfTheTokenWithoutEcho) {
    const TokenFolder tokens("Card");
    Terminal terminal;
    terminal.start({MARVO_TOOL_PROGRAM, "list", "--login"});
    EXPECT_EQ(terminal.read_until(": "), "PIN of Card: ");
    terminal.wait_until_echo_is_off();
    terminal.type(std::string(TokenFolder::pin) + "\n");
    const std::string output = terminal.read_to_end();
    EXPECT_EQ(output.find(TokenFolder::pin), std::string::npos) << output;
    EXPECT_NE(output.find("Keys       0 keys, 0 offered"), std::string::npos) << output;
    EXPECT_EQ(terminal.wait(), 0);
}

TEST(ListTest, CryptoApiOnAnotherSystemFailsWithTheLibrarysError) {
    const struct {
        const char* backend;
        const char* error;
    } rows[] = {{"capi", "capi_backend:15 Kes::capi_backend::probe(): crypto interface capi is available on "
                         "Windows only: val=4 (unsupported)"},
                {"capi_store", "capi_backend:23 Kes::capi_backend::create_store_scanner(): crypto interface "
                               "capi_store is available on Windows only: val=4 (unsupported)"}};
    for (const auto& row : rows) {
        const ToolRun run = run_tool({"list", "--backend", row.backend, "--json"});
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.errors, std::string("marvo list: ") + row.error + "\n" + hint);
        EXPECT_EQ(run.json()["error"], row.error);
        EXPECT_EQ(schema_violations("list", run.output), "");
    }
}

TEST(ListTest, MissingCardFailsWithTheLibrarysErrorAndAHint) {
    const FileTokens tokens;
    tokens.add_empty_reader("reader");
    // The library deliberately abandons the slots of a read without a card, which a sanitizer build reports.
    const EnvVar without_leak_check("ASAN_OPTIONS", "detect_leaks=0");
    const std::string error =
        "libp11_helper:140 Kes::Libp11Init::read_scard(): PKCS11_find_token() failed: val=11 (empty)";
    const ToolRun run = run_tool({"list", "--json", "--backend", "pkcs11", "--module", FileTokens::module()});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errors, "marvo list: " + error + "\n" + hint);
    EXPECT_EQ(run.json(), nlohmann::json({{"schema", 1}, {"command", "list"}, {"error", error}}));
    EXPECT_EQ(schema_violations("list", run.output), "");
}

TEST(ListTest, UnknownBackEndFailsWithTheLibrarysError) {
    const EnvVar backend("ossl_scard_cfg_crypto_if", "nothing");
    const ToolRun run = run_tool({"list"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errors, "marvo list: pko_id_list:86 Kes::PkoIdList::scan(): no scanner registered: val=9 "
                          "(not_registered)\n" +
                              hint);
}

} // namespace
} // namespace Kes::test
