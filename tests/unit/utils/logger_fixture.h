#ifndef KES_TESTS_UNIT_UTILS_LOGGER_FIXTURE_H_
#define KES_TESTS_UNIT_UTILS_LOGGER_FIXTURE_H_

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "support/support.h"
#include "utils/logger.h"

namespace Kes::test {

/// Each test starts with a new logger and destroys it.
class LoggerFixture : public testing::Test {
protected:
    LoggerFixture() { Logger::destroy_instance(); }
    ~LoggerFixture() override { Logger::destroy_instance(); }

    static Logger& logger() { return Logger::instance(); }

    /// The path of a file in the temporary folder of the test.
    std::string file(const std::string& name = "log") const { return dir_.file(name); }

    /// The lines of the file without headers. The restart banner is replaced by "[banner]".
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
