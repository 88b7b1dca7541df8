#include "tool/doctor/html_page.h"

#include <gtest/gtest.h>

#include "broken_report.h"
#include "tool/doctor/chain.h"
#include "tool/doctor/html_text.h"

namespace Kes::test {
namespace {

using tool::Names;

std::string page_of(const std::vector<tool::Finding>& findings, Names names = Names::left_out) {
    return tool::html_page(findings, {.names = names, .version = "1.2.3", .time = "2024-03-05 09:07"});
}

bool contains(const std::string& text, const std::string& part) { return text.find(part) != text.npos; }

TEST(HtmlTextTest, MarkupIsEscaped) {
    EXPECT_EQ(tool::html_escaped(R"(<a href="x">'&amp;')"),
              "&lt;a href=&quot;x&quot;&gt;&#39;&amp;amp;&#39;");
}

TEST(HtmlTextTest, ControlCharactersBecomeSpaces) {
    EXPECT_EQ(tool::html_escaped(std::string("a\0b\x1b[31m\n\x7f.", 11)), "a b [31m  .");
}

TEST(HtmlTextTest, BytesThatAreNotUtf8AreReplaced) {
    EXPECT_EQ(tool::html_escaped("M\xfcller, \xc3\xa4"), "M\xef\xbf\xbdller, \xc3\xa4");
    EXPECT_EQ(tool::html_escaped("\xc0\xbcscript"), "\xef\xbf\xbd\xef\xbf\xbdscript") << "an overlong <";
}

TEST(ChainTest, WorstLineGivesTheStateOfAPart) {
    using namespace tool;
    const std::vector<Finding> findings{
        {State::ok, Link::client, "", "", ""},       {State::skipped, Link::client, "", "", ""},
        {State::warning, Link::library, "", "", ""}, {State::note, Link::library, "", "", ""},
        {State::note, Link::engine, "", "", ""},     {State::ok, Link::engine, "", "", ""},
        {State::error, Link::module, "", "", ""},    {State::error, Link::card, "", "", ""}};
    const Chain chain = read_chain(findings);
    const State states[] = {State::ok, State::warning, State::note, State::error, State::error};
    for (std::size_t i = 0; i < chain.parts.size(); ++i)
        EXPECT_EQ(chain.parts[i].state, states[i]) << chain.parts[i].name;
    EXPECT_EQ(chain.broken, 3U) << "the first error";
}

TEST(ChainTest, DescriptionNamesTheBrokenPart) {
    EXPECT_TRUE(
        contains(page_of(broken_report()),
                 "Client: ok; Library: warning; Engine: error, the chain is broken here; Module: note; "
                 "Card: skipped</desc>"));
}

TEST(ChainTest, WholeChainShowsNoBreak) {
    const std::string page = page_of({{tool::State::ok, tool::Link::card, "keys", "one", ""}});
    EXPECT_TRUE(contains(page, "Module: not checked; Card: ok</desc>"));
    EXPECT_FALSE(contains(page, "broken here"));
    EXPECT_FALSE(contains(page, "class='cross'"));
    EXPECT_FALSE(contains(page, "What is wrong"));
}

TEST(HtmlPageTest, TitleCountsTheMistakes) {
    EXPECT_TRUE(contains(page_of(broken_report()), "<title>marvo doctor: 1 error, 1 warning</title>"));
    EXPECT_TRUE(contains(page_of({}), "<title>marvo doctor: 0 errors, 0 warnings</title>"));
}

TEST(HtmlPageTest, PersonalDataIsShownOnlyOnRequest) {
    const std::string without = page_of(broken_report());
    EXPECT_TRUE(contains(without, "token [name]"));
    EXPECT_FALSE(contains(without, "alert"));
    EXPECT_TRUE(contains(without, "Personal data is left out: [name] stands for it."));
    const std::string with = page_of(broken_report(), Names::shown);
    EXPECT_TRUE(contains(with,
                         "token &lt;/dd&gt;&lt;script&gt;alert(&quot;1&quot;)&lt;/script&gt;&lt;img src=x "
                         "onerror=&#39;alert(2)&#39;&gt;&amp;amp;</dd>"));
    EXPECT_TRUE(contains(with, "This page contains personal data."));
}

TEST(HtmlPageTest, EveryTextOfALineIsEscaped) {
    const std::string page = page_of({{tool::State::error, tool::Link::client, "<b>", "<i>", "<u>"}});
    for (const char* element : {"<b>", "<i>", "<u>"})
        EXPECT_FALSE(contains(page, element));
    EXPECT_TRUE(contains(page, "<strong>&lt;b&gt;:</strong> &lt;i&gt;"));
    EXPECT_TRUE(contains(page, "<strong>Remedy:</strong> &lt;u&gt;"));
}

TEST(HtmlPageTest, NothingOutsideThePageIsUsed) {
    const std::string page = page_of(broken_report(), Names::shown);
    for (const char* reference : {"<script", "<link", "<img", "url(", "@import", "http:", "https:"})
        EXPECT_FALSE(contains(page, reference)) << reference;
}

} // namespace
} // namespace Kes::test
