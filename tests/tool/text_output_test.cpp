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
