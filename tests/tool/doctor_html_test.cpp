#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "json_schema.h"
#include "support/process.h"
#include "support/support.h"
#include "tool_run.h"

namespace Kes::test {
namespace {

/// Runs of doctor with an engine and a PKCS#11 module that do not exist.
class DoctorHtmlTest : public testing::Test {
protected:
    ToolRun run(std::vector<std::string> options) const {
        options.insert(options.begin(),
                       {"doctor", "--backend", "pkcs11", "--engine", dir_.file("absent-engine.so"),
                        "--module", dir_.file("absent.so"), "--html", page_});
        return run_tool(options);
    }

    const TempDir dir_;
    const std::string page_ = dir_.file("report.html");
};

TEST_F(DoctorHtmlTest, PageShowsTheBrokenPart) {
    const ToolRun result = run({});
    EXPECT_EQ(result.status, 3) << result.errors;
    EXPECT_EQ(result.errors, "The report is in " + page_ + "\n");
    const std::string page = read_file(page_);
    EXPECT_NE(page.find("Engine: error, the chain is broken here; Module: error; Card: skipped<"),
              std::string::npos)
        << page;
    EXPECT_NE(page.find(dir_.file("absent.so")), std::string::npos);
    EXPECT_NE(page.find("Made by marvo " MARVO_VERSION " on 20"), std::string::npos);
}

TEST_F(DoctorHtmlTest, PageIsWrittenBesidesJson) {
    const ToolRun result = run({"--json"});
    EXPECT_EQ(result.json()["command"], "doctor");
    EXPECT_NE(read_file(page_), "");
}

TEST_F(DoctorHtmlTest, ExistingFileIsKeptWithoutForce) {
    std::ofstream(page_) << "mine";
    const ToolRun result = run({});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "") << "no check has run";
    EXPECT_EQ(result.errors, "marvo doctor: the file " + page_ + " exists; --force overwrites it\n");
    EXPECT_EQ(read_file(page_), "mine");
}

TEST_F(DoctorHtmlTest, JsonOfAFailureFollowsTheSchema) {
    std::ofstream(page_) << "mine";
    const ToolRun result = run({"--json"});
    EXPECT_EQ(result.json()["error"], "the file " + page_ + " exists; --force overwrites it");
    EXPECT_EQ(schema_violations("doctor", result.output), "");
}

TEST_F(DoctorHtmlTest, FileInAMissingFolderIsReportedBeforeTheChecks) {
    const std::string page = dir_.file("absent/report.html");
    const ToolRun text = run_tool({"doctor", "--html", page});
    EXPECT_EQ(text.status, 1);
    EXPECT_EQ(text.output, "") << "no check has run";
    EXPECT_EQ(text.errors, "marvo doctor: cannot create the file " + page + ": No such file or directory\n");
    const ToolRun with_json = run_tool({"doctor", "--html", page, "--json"});
    EXPECT_EQ(with_json.status, 1);
    EXPECT_EQ(with_json.json()["error"], "cannot create the file " + page + ": No such file or directory");
    EXPECT_EQ(schema_violations("doctor", with_json.output), "");
}

TEST_F(DoctorHtmlTest, FailedWriteKeepsTheReportAndItsStatus) {
    const ToolRun result = run_tool({"doctor", "--backend", "pkcs11", "--module", dir_.file("absent.so"),
                                     "--html", "/dev/full", "--force", "--json"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.errors, "marvo doctor: cannot write the file /dev/full: No space left on device\n");
    EXPECT_GT(result.json()["errors"], 0);
    EXPECT_EQ(schema_violations("doctor", result.output), "");
}

/// Runs doctor with a limit for the size of the files that it writes: one block of the shell.
int run_with_file_limit(const std::string& page, const std::string& output, const std::string& prepare) {
    const TempDir dir;
    Process process({"/bin/sh", "-c", prepare + R"(ulimit -f 1; exec "$0" doctor --html "$1" >"$2")",
                     MARVO_TOOL_PROGRAM, page, output},
                    dir.file("errors"));
    return process.wait();
}

TEST_F(DoctorHtmlTest, InterruptedRunLeavesNoFile) {
    const int killed_by_limit = 128 + SIGXFSZ;
    EXPECT_EQ(run_with_file_limit(page_, dir_.file("output"), ""), killed_by_limit);
    EXPECT_NE(read_file(dir_.file("output")), "") << "checks have run";
    EXPECT_FALSE(std::filesystem::exists(page_));
}

TEST_F(DoctorHtmlTest, FailedWriteLeavesNoFile) {
    EXPECT_EQ(run_with_file_limit(page_, "/dev/null", "trap '' XFSZ; "), 3);
    EXPECT_FALSE(std::filesystem::exists(page_));
}

TEST_F(DoctorHtmlTest, FileThatIsAFolderIsReportedBeforeTheChecks) {
    std::filesystem::create_directory(page_);
    const ToolRun result = run({"--force"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "") << "no check has run";
    EXPECT_EQ(result.errors, "marvo doctor: cannot create the file " + page_ + ": Is a directory\n");
}

TEST_F(DoctorHtmlTest, ForceOverwritesTheFile) {
    std::ofstream(page_) << "mine";
    EXPECT_EQ(run({"--force"}).status, 3);
    EXPECT_TRUE(read_file(page_).starts_with("<!DOCTYPE html>"));
}

TEST_F(DoctorHtmlTest, ForceWithoutAPageIsAUsageError) {
    const ToolRun result = run_tool({"doctor", "--force"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.errors,
              "--force requires --html\nRun with --help or --help-all for more information.\n");
}

} // namespace
} // namespace Kes::test
