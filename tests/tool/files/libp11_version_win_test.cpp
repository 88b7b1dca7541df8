#include <gtest/gtest.h>

#include "libp11_lines.h"

namespace Kes::test {
namespace {

std::string line_of(const std::string& library, tool::Link link = tool::Link::library) {
    return libp11_line(std::string(KES_TEST_LIBRARIES) + "/" + library + ".dll", link);
}

TEST(Libp11FileTest, TooOldVersionIsAnError) {
    EXPECT_EQ(line_of("libp11_0_4_11"), "error: earlier than 0.4.12 according to its exports; refused: FILE "
                                        "(Install a version that docs/libp11.md recommends)");
}

TEST(Libp11FileTest, BadVersionIsAnError) {
    const std::string end = " according to its version resource; crashes, or fails to sign, when several "
                            "threads sign; without this library too: FILE (Install a version that "
                            "docs/libp11.md recommends)";
    EXPECT_EQ(line_of("libp11_0_4_14"), "error: 0.4.14" + end);
    EXPECT_EQ(line_of("engine_0_4_15", tool::Link::engine), "error: 0.4.15" + end);
}

TEST(Libp11FileTest, RecommendedVersionIsFine) {
    EXPECT_EQ(line_of("libp11_0_4_16"), "ok: 0.4.16 according to its version resource: FILE");
}

TEST(Libp11FileTest, LimitedVersionIsAWarning) {
    EXPECT_EQ(line_of("libp11_0_4_12"),
              "warning: 0.4.12 according to its exports: FILE (Use 0.4.16 or later)");
}

TEST(Libp11FileTest, VersionThatIsNotInTheTableWasNotTested) {
    EXPECT_EQ(line_of("libp11_0_4_99"),
              "note: 0.4.99 according to its version resource; this version was not "
              "tested: FILE (Prefer a version that docs/libp11.md recommends)");
}

TEST(Libp11FileTest, ResourceWithTheNumberOfTheInterfaceSaysNothing) {
    EXPECT_EQ(
        line_of("libp11_interface"),
        "note: 0.4.13 or later according to its exports: FILE (Take libp11 and its engine from the same "
        "build, in a version that docs/libp11.md recommends)");
}

TEST(Libp11FileTest, VersionInsideAnEngineWithoutAResourceIsUnknown) {
    EXPECT_EQ(line_of("engine", tool::Link::engine),
              "note: unknown: FILE (Take libp11 and its engine from the same build, in a version that "
              "docs/libp11.md recommends)");
}

} // namespace
} // namespace Kes::test
