#include "tool/printable.h"

#include <gtest/gtest.h>

namespace Kes::test {
namespace {

TEST(PrintableTest, ControlCharactersAndInvalidBytesAreEscaped) {
    EXPECT_EQ(tool::printable("a\n\r\t\x1b[1m\\\x7f", 80), "a\\n\\r\\t\\x1b[1m\\\\\\x7f");
    EXPECT_EQ(tool::printable("\xff\xc3(\xc2\x9b", 80), "\\xff\\xc3(\\xc2\\x9b");
}

TEST(PrintableTest, LettersOfAnyLanguageAreKept) {
    EXPECT_EQ(tool::printable("J\xc3\xb6rn \xe2\x82\xac \xf0\x9f\x98\x80", 80),
              "J\xc3\xb6rn \xe2\x82\xac \xf0\x9f\x98\x80");
    EXPECT_EQ(tool::printable("\xc3", 80), "\\xc3");
}

TEST(PrintableTest, LongTextIsCut) {
    EXPECT_EQ(tool::printable("12345", 5), "12345");
    EXPECT_EQ(tool::printable("123456", 5), "12345...");
}

} // namespace
} // namespace Kes::test
