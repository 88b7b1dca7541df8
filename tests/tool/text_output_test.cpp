#include "tool/text_output.h"

#include <gtest/gtest.h>
#include <sstream>

namespace Kes::test {
namespace {

std::string field(std::size_t indent, std::size_t width, const std::string& label, const std::string& text) {
    std::ostringstream out;
    tool::print_field(out, indent, width, label, text);
    return out.str();
}

TEST(TextOutputTest, ReadableTextIsPrintedUnchanged) {
    for (const char* text : {"", "abc ~", "Zo\xc3\xab \xe2\x82\xac \xf0\x9f\x94\x91", "\xc2\xa0"})
        EXPECT_EQ(tool::printable(text), text);
}

TEST(TextOutputTest, ControlCharactersAreEscaped) {
    EXPECT_EQ(tool::printable("\x1b[31m\r\n\t\x7f"), "\\x1b[31m\\x0d\\x0a\\x09\\x7f");
    EXPECT_EQ(tool::printable("a\xc2\x9b"
                              "b"),
              "a\\xc2\\x9bb")
        << "one byte in other encodings";
    EXPECT_EQ(tool::printable(std::string("a\0b", 3)), "a\\x00b");
}

TEST(TextOutputTest, CharactersThatChangeTheDirectionAreEscaped) {
    EXPECT_EQ(tool::printable("\xe2\x80\xae"
                              "abc\xe2\x81\xa6"),
              "\\xe2\\x80\\xaeabc\\xe2\\x81\\xa6");
}

TEST(TextOutputTest, BytesThatAreNotUtf8AreEscaped) {
    EXPECT_EQ(tool::printable("M\xfcller"), "M\\xfcller");
    EXPECT_EQ(tool::printable("\xc3"), "\\xc3") << "incomplete";
    EXPECT_EQ(tool::printable("\xc0\xaf"), "\\xc0\\xaf") << "longer than necessary";
    EXPECT_EQ(tool::printable("\xe0\x80\xaf"), "\\xe0\\x80\\xaf") << "longer than necessary";
    EXPECT_EQ(tool::printable("\xed\xa0\x80"), "\\xed\\xa0\\x80") << "half of a pair";
    EXPECT_EQ(tool::printable("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80") << "beyond the last character";
}

TEST(TextOutputTest, FieldHasItsLabelAndTextInColumns) {
    EXPECT_EQ(field(2, 5, "key", "RSA"), "  key   RSA\n");
    EXPECT_EQ(field(0, 2, "longer", "text"), "longer text\n");
    EXPECT_EQ(field(0, 3, "key", ""), "key \n");
}

TEST(TextOutputTest, LongTextContinuesBelowItsFirstWord) {
    const std::string word(45, 'a');
    EXPECT_EQ(field(0, 4, "k", word + " " + word + " " + word + "\xc3\xa4"),
              "k    " + word + " " + word + "\n     " + word + "\xc3\xa4\n");
    EXPECT_EQ(field(0, 4, "k", std::string(95, 'b')), "k    " + std::string(95, 'b') + "\n");
    EXPECT_EQ(field(0, 4, "k", std::string(95, 'b') + " c"), "k    " + std::string(95, 'b') + "\n     c\n");
    EXPECT_EQ(field(0, 4, "k", std::string(96, 'b')), "k    " + std::string(95, 'b') + "\n     b\n");
}

} // namespace
} // namespace Kes::test
