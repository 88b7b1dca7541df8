#include <gtest/gtest.h>
#include <sstream>

#include <nlohmann/json.hpp>

#include "json_schema.h"
#include "tool/list_result.h"

namespace Kes::test {
namespace {

tool::ListResult result_with(const TokenInfo& token) {
    tool::ListResult result;
    result.backend = "pkcs11";
    result.source = "module.so";
    result.tokens = {token};
    return result;
}

std::string text_of_result(const tool::ListResult& result) {
    std::ostringstream out;
    tool::print_text(out, result);
    return out.str();
}

TokenInfo used_token() {
    TokenInfo token{
        .reader = "Reader", .label = "Card", .manufacturer = "Maker", .model = "M7", .serial = "42"};
    token.is_used = true;
    token.is_initialized = true;
    token.is_login_required = true;
    return token;
}

const std::string head =
    "Back-end   pkcs11\nModule     module.so\nToken      Card (Maker M7, serial 42) in Reader\n";

TEST(ListTextTest, FlagsOfTheTokenAreNamed) {
    TokenInfo token = used_token();
    token.is_pin_count_low = true;
    token.is_final_try = true;
    EXPECT_EQ(text_of_result(result_with(token)),
              head +
                  "           login required, a wrong PIN was entered, one more wrong PIN locks the token\n"
                  "Keys       0 keys, 0 offered\n");
    token = used_token();
    token.is_locked = true;
    token.must_pin_be_changed = true;
    EXPECT_EQ(text_of_result(result_with(token)),
              head + "           login required, locked, PIN must be changed\n"
                     "Keys       0 keys, 0 offered\n");
    token = used_token();
    token.is_login_required = false;
    token.is_initialized = false;
    EXPECT_EQ(text_of_result(result_with(token)), head + "           no login required, not initialized\n"
                                                         "Keys       0 keys, 0 offered\n");
}

TEST(ListTextTest, LastDayIsOneDay) {
    tool::ListResult result = result_with(used_token());
    tool::SurveyedKey key;
    key.certificate = tool::CertificateFacts();
    const auto text_with = [&](long days) {
        key.certificate->days_left = days;
        result.survey.keys = {key};
        return text_of_result(result);
    };
    EXPECT_NE(text_with(0).find(" (0 days left)\n"), std::string::npos);
    EXPECT_NE(text_with(1).find(" (1 day left)\n"), std::string::npos);
    EXPECT_NE(text_with(2).find(" (2 days left)\n"), std::string::npos);
}

TEST(ListTextTest, ReaderWithAPinPadIsExplained) {
    TokenInfo token = used_token();
    token.has_pin_pad = true;
    EXPECT_EQ(text_of_result(result_with(token)), head + "           login required, reader has a PIN pad\n"
                                                         "Note       the library does not log in at a reader "
                                                         "with a PIN pad; private keys may not be visible\n"
                                                         "Keys       0 keys, 0 offered\n");
}

TEST(ListTextTest, NamesFromTheCardCannotControlTheTerminal) {
    TokenInfo token = used_token();
    token.label = "\x1b]0;title\x07";
    token.reader = "a\nb";
    EXPECT_EQ(text_of_result(result_with(token)),
              "Back-end   pkcs11\nModule     module.so\n"
              "Token      \\x1b]0;title\\x07 (Maker M7, serial 42) in a\\x0ab\n"
              "           login required\nKeys       0 keys, 0 offered\n");
}

TEST(ListTextTest, ErrorEndsTheTextAfterTheToken) {
    tool::ListResult result = result_with(used_token());
    result.error = "broken";
    EXPECT_EQ(text_of_result(result), head + "           login required\n");
    tool::Json json{{"schema", 1}, {"command", "list"}};
    json.update(tool::to_json(result));
    EXPECT_EQ(schema_violations("list", json.dump()), "");
    EXPECT_EQ(json["complete"], false);
    EXPECT_EQ(json["error"], "broken");
}

} // namespace
} // namespace Kes::test
