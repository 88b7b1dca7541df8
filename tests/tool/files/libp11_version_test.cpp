#include "tool/libp11_version.h"

#include <gtest/gtest.h>
#include <regex>
#include <sstream>

#include "support/support.h"

namespace Kes::test {
namespace {

using tool::Libp11Experience;
using System = Libp11Experience::System;

/// The cells of a row of a table in Markdown, without the addresses of links.
Lines cells_of(const std::string& row) {
    const std::string text = std::regex_replace(row, std::regex(R"(\[([^\]]*)\]\([^)]*\))"), "$1");
    Lines cells;
    std::istringstream rest(text.substr(2)); // after "| "
    for (std::string cell; std::getline(rest, cell, '|') && cell.size() > 1;)
        cells.push_back(std::regex_replace(cell, std::regex("^ +| +$"), ""));
    return cells;
}

/// The rows of the document's table, each as one line without the column that says what was run.
Lines rows_of_document() {
    Lines rows;
    for (const std::string& line : split_lines(read_text(KES_TEST_LIBP11_DOCUMENT))) {
        if (!line.starts_with("| ") || line.starts_with("| version")) continue;
        const Lines cells = cells_of(line);
        const std::string system = cells.at(1).substr(0, cells.at(1).find_first_of(": "));
        rows.push_back(cells.at(0) + " | " + system + " | " + cells.at(3) + " | " + cells.at(4));
    }
    return rows;
}

Lines rows_of_code() {
    Lines rows;
    for (const Libp11Experience& row : tool::libp11_table()) {
        const char* system = row.system == System::any          ? "all"
                             : row.system == System::linux_like ? "Linux"
                                                                : "Windows";
        rows.push_back((rows.empty() ? "up to " : "") + std::string(row.version) + " | " + system + " | " +
                       row.limits + " | " + row.recommendation);
    }
    return rows;
}

TEST(Libp11TableTest, CodeAndDocumentAgree) {
    EXPECT_EQ(as_text(rows_of_code()), as_text(rows_of_document()));
}

TEST(Libp11TableTest, StateFollowsFromTheRecommendation) {
    for (const Libp11Experience& row : tool::libp11_table()) {
        const std::string recommendation = row.recommendation;
        const tool::State state = recommendation == "use"                 ? tool::State::ok
                                  : recommendation == "do not use"        ? tool::State::error
                                  : recommendation == "not tested enough" ? tool::State::note
                                                                          : tool::State::warning;
        EXPECT_EQ(row.state, state) << row.version;
    }
}

} // namespace
} // namespace Kes::test
