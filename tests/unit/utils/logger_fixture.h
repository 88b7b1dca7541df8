#ifndef KES_TESTS_UNIT_UTILS_LOGGER_FIXTURE_H_
#define KES_TESTS_UNIT_UTILS_LOGGER_FIXTURE_H_

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "support/support.h"
#include "utils/logger.h"

namespace Kes::test {

/// Each test meets a fresh logger and leaves none behind.
class LoggerFixture : public testing::Test {
protected:
    LoggerFixture() { Logger::destroy_instance(); }
    ~LoggerFixture() override { Logger::destroy_instance(); }

    static Logger& logger() { return Logger::instance(); }

    /// A file's name in the test's own folder.
    std::string file(const std::string& name = "log") const { return dir_.file(name); }

    /// The file's lines without their headers; the restart banner without its time.
    Lines lines(const std::string& name = "log") const {
        Lines all = log_lines(file(name));
        for (std::string& line : all)
            if (without_build(line) == "[[[ ------ restart logger at TIME ------]]]") line = "[banner]";
        return all;
    }

private:
    TempDir dir_;
};

} // namespace Kes::test

#endif // KES_TESTS_UNIT_UTILS_LOGGER_FIXTURE_H_
