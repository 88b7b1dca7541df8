#include <fstream>
#include <gtest/gtest.h>

#include "broken_report.h"
#include "support/process.h"
#include "support/support.h"
#include "tool/doctor/html_page.h"
#include "tool/doctor/html_text.h"

namespace Kes::test {
namespace {

/// Reports measures of the page, which is in a frame, as the title of the document around it.
const std::string script = R"(<script>
onload = () => {
  const view = frames[0], page = view.document;
  const is_shown = picture => view.getComputedStyle(picture).display != "none";
  document.title = [view.innerWidth, page.documentElement.scrollWidth,
    view.getComputedStyle(page.body).backgroundColor,
    [...page.querySelectorAll("svg[role=img]")].filter(is_shown).map(picture => picture.classList[0]),
    view.performance.getEntriesByType("resource").length].join(" ");
};
</script>)";

/// Renders the page of a broken installation in Chromium without a window.
class HtmlPageBrowserTest : public testing::Test {
protected:
    HtmlPageBrowserTest()
        : page_(tool::html_page(
              broken_report(),
              {.names = tool::Names::shown, .version = "1.2.3", .time = "2024-03-05 09:07"})) {}

    /// The document after the browser has read it.
    std::string dump(const std::string& page, const std::vector<std::string>& options) const {
        std::ofstream(dir_.file("page.html")) << page;
        std::vector<std::string> command{"/bin/sh", "-c", R"(exec >"$0"; exec "$@")", dir_.file("dump"),
                                         MARVO_CHROMIUM};
        for (const std::string option :
             {"--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run",
              "--disable-background-networking", "--hide-scrollbars", "--disable-component-update",
              "--dump-dom"})
            command.push_back(option);
        command.push_back("--user-data-dir=" + dir_.file("profile"));
        command.insert(command.end(), options.begin(), options.end());
        command.push_back("file://" + dir_.file("page.html"));
        Process browser(command, dir_.file("errors"));
        EXPECT_EQ(browser.wait(), 0) << read_file(dir_.file("errors"));
        return read_file(dir_.file("dump"));
    }

    /// What the script reports for a frame of this width: the width of the frame and of the page, the colour
    /// of the background, the picture that is shown, and the number of other files that were loaded.
    std::string measures(int width, bool is_dark) const {
        const std::string frame = "<iframe width=" + std::to_string(width) +
                                  " height=900 frameborder=0 srcdoc=\"" + tool::html_escaped(page_) +
                                  "\"></iframe>";
        const std::string document =
            dump("<!DOCTYPE html><title></title>" + frame + script,
                 {std::string("--blink-settings=preferredColorScheme=") + (is_dark ? "0" : "1")});
        const std::size_t begin = document.find("<title>") + 7;
        return document.substr(begin, document.find("</title>") - begin);
    }

    const TempDir dir_;
    const std::string page_;
};

TEST_F(HtmlPageBrowserTest, PageFitsIntoAWideWindow) {
    EXPECT_EQ(measures(1200, false), "1200 1200 rgb(246, 247, 249) wide 0");
}

TEST_F(HtmlPageBrowserTest, PageFitsIntoANarrowWindow) {
    EXPECT_EQ(measures(400, false), "400 400 rgb(246, 247, 249) tall 0");
}

TEST_F(HtmlPageBrowserTest, DarkColoursAreUsedOnRequest) {
    EXPECT_EQ(measures(1200, true), "1200 1200 rgb(20, 24, 31) wide 0");
}

TEST_F(HtmlPageBrowserTest, NamesFromACardAreTextForTheBrowser) {
    const std::string document = dump(page_, {});
    EXPECT_NE(document.find(R"(token &lt;/dd&gt;&lt;script&gt;alert("1")&lt;/script&gt;&lt;img src=x )"
                            R"(onerror='alert(2)'&gt;&amp;amp;</dd>)"),
              std::string::npos)
        << document;
    EXPECT_EQ(document.find("<script"), std::string::npos);
    EXPECT_EQ(document.find("<img"), std::string::npos);
}

TEST_F(HtmlPageBrowserTest, PolicyOfThePageRefusesScripts) {
    std::string page = page_;
    page.insert(page.find("</body>"), "<script>document.title = 'changed'</script>");
    EXPECT_NE(dump(page, {}).find("<title>marvo doctor: 1 error, 1 warning</title>"), std::string::npos);
}

} // namespace
} // namespace Kes::test
