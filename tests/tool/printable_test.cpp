#include "tool/printable.h"

#include <gtest/gtest.h>

namespace Kes::test {
namespace {

TEST(PrintableTest, ReadableTextIsPrintedUnchanged) {
    for (const char* text : {"", "abc ~", "Zo\xc3\xab \xe2\x82\xac \xf0\x9f\x94\x91", "\xc2\xa0"})
        EXPECT_EQ(tool::printable(text), text);
}

TEST(PrintableTest, ControlCharactersAreEscaped) {
    EXPECT_EQ(tool::printable("\x1b[31m\r\n\t\x7f"), "\\x1b[31m\\x0d\\x0a\\x09\\x7f");
    EXPECT_EQ(tool::printable("a\xc2\x9b"
                              "b"),
              "a\\xc2\\x9bb")
        << "one byte in other encodings";
    EXPECT_EQ(tool::printable(std::string("a\0b", 3)), "a\\x00b");
}

TEST(PrintableTest, CharactersThatChangeTheDirectionAreEscaped) {
    EXPECT_EQ(tool::printable("\xe2\x80\xae"
                              "abc\xe2\x81\xa6"),
              "\\xe2\\x80\\xaeabc\\xe2\\x81\\xa6");
}

TEST(PrintableTest, BytesThatAreNotUtf8AreEscaped) {
    EXPECT_EQ(tool::printable("M\xfcller"), "M\\xfcller");
    EXPECT_EQ(tool::printable("\xc3"), "\\xc3") << "incomplete";
    EXPECT_EQ(tool::printable("\xc0\xaf"), "\\xc0\\xaf") << "longer than necessary";
    EXPECT_EQ(tool::printable("\xe0\x80\xaf"), "\\xe0\\x80\\xaf") << "longer than necessary";
    EXPECT_EQ(tool::printable("\xed\xa0\x80"), "\\xed\\xa0\\x80") << "half of a pair";
    EXPECT_EQ(tool::printable("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80") << "beyond the last character";
}

TEST(PrintableTest, LinesAreKept) {
    EXPECT_EQ(tool::printable_lines(""), "");
    EXPECT_EQ(tool::printable_lines("a\x1b[2J\n\n\tb\n"), "a\\x1b[2J\n\n\\x09b\n");
    EXPECT_EQ(tool::printable_lines("a\r\nb"), "a\\x0d\nb");
}

TEST(PrintableTest, LongTextIsCut) {
    EXPECT_EQ(tool::printable("12345", 5), "12345");
    EXPECT_EQ(tool::printable("123456", 5), "12345...");
    EXPECT_EQ(tool::printable("1234\xe2\x82\xac", 6), "1234...") << "a character is not cut";
}

} // namespace
} // namespace Kes::test
