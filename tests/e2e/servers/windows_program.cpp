#include "windows_program.h"

#include <fstream>
#include <gtest/gtest.h>

#include "support/process.h"
#include "support/support.h"

namespace Kes::test {

std::vector<std::string> windows_command(const std::string& folder, const std::string& program,
                                         const std::vector<std::string>& arguments) {
    std::vector<std::string> words{"/usr/bin/env", "-C", folder, MARVO_WINE,
                                   MARVO_PROGRAMS "/" + program + ".exe"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return words;
}

Outcome run_with_input(const std::vector<std::string>& command, const std::string& input) {
    const TempDir dir;
    std::ofstream(dir.file("input")) << input;
    std::vector<std::string> words{"/bin/sh", "-c", R"(exec "$@" <"$0")", dir.file("input")};
    words.insert(words.end(), command.begin(), command.end());
    Process process(words, dir.file("output"));
    const int status = process.wait();
    return {status, read_file(dir.file("output"))};
}

std::string without_carriage_returns(const std::string& text) {
    std::string lines;
    for (const std::string& line : split_lines(text)) {
        EXPECT_TRUE(line.ends_with('\r')) << line;
        lines += line.substr(0, line.find('\r')) + "\n";
    }
    return lines;
}

std::string before_answer(const std::string& output) { return output.substr(0, output.find("answer: ")); }

std::string body_of(const std::string& output) {
    const auto end_of_header = output.find("\n\n");
    return end_of_header == std::string::npos ? "no answer" : output.substr(end_of_header + 2);
}

} // namespace Kes::test
