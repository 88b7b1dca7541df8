#include "tool/shell_assignment.h"

#include <gtest/gtest.h>

#include "support/support.h"

namespace Kes::test {
namespace {

using tool::shell_assignment;

TEST(ShellAssignmentTest, ShQuotesEverything) {
    EXPECT_EQ(shell_assignment("sh", "name", "a $b `c` \"d\" \\e"), "export name='a $b `c` \"d\" \\e'");
    EXPECT_EQ(shell_assignment("sh", "name", "it's"), "export name='it'\\''s'");
}

TEST(ShellAssignmentTest, CmdDoublesPercentSigns) {
    EXPECT_EQ(shell_assignment("cmd", "name", "C:\\a & b^%PATH%"), "set \"name=C:\\a & b^%%PATH%%\"");
}

TEST(ShellAssignmentTest, CmdCannotExpressQuotationMarksAndLineEnds) {
    const std::string text = "cmd cannot set name, because its value contains a quotation mark or a line end";
    EXPECT_EQ(error_text([] { shell_assignment("cmd", "name", "a\"b"); }), text);
    EXPECT_EQ(error_text([] { shell_assignment("cmd", "name", "a\nb"); }), text);
}

TEST(ShellAssignmentTest, PowerShellDoublesAllItsQuotationMarks) {
    EXPECT_EQ(shell_assignment("powershell", "name", "it's $x `"), "$env:name = 'it''s $x `'");
    EXPECT_EQ(shell_assignment("powershell", "name", "\xe2\x80\x99"),
              "$env:name = '\xe2\x80\x99\xe2\x80\x99'");
}

} // namespace
} // namespace Kes::test
