#include "tool/doctor/finding.h"

#include <gtest/gtest.h>

namespace Kes::test {
namespace {

using tool::Names;
using tool::Text;

TEST(FindingTextTest, PersonalPiecesAreLeftOutOnRequest) {
    const Text text = Text("the certificate of ").add_personal("CN=User A").add(" has expired");
    EXPECT_EQ(text.str(Names::shown), "the certificate of CN=User A has expired");
    EXPECT_EQ(text.str(Names::left_out), "the certificate of [name] has expired");
}

TEST(FindingTextTest, AddedTextKeepsItsPersonalPieces) {
    Text text("token ");
    text.add(Text("label ").add_personal("Card of A"));
    EXPECT_EQ(text.str(Names::left_out), "token label [name]");
}

TEST(FindingTextTest, EveryOccurrenceOfANameIsMarked) {
    Text text("/home/anna/lib of anna: /tmp/anna");
    text.mark({"anna"});
    EXPECT_EQ(text.str(Names::shown), "/home/anna/lib of anna: /tmp/anna");
    EXPECT_EQ(text.str(Names::left_out), "/home/[name]/lib of [name]: /tmp/[name]");
}

TEST(FindingTextTest, NameInsideALongerWordIsNotMarked) {
    Text text("anna, annas, joanna, Susanna and ann");
    text.mark({"ann", "anna", ""});
    EXPECT_EQ(text.str(Names::left_out), "[name], annas, joanna, Susanna and [name]");
}

TEST(FindingTextTest, NameThatBeginsWithAnotherCharacterThanALetterIsMarked) {
    Text text("file=/home/a/lib");
    text.mark({"/home/a"});
    EXPECT_EQ(text.str(Names::left_out), "file=[name]/lib");
}

} // namespace
} // namespace Kes::test
