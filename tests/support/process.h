#ifndef KES_TESTS_SUPPORT_PROCESS_H_
#define KES_TESTS_SUPPORT_PROCESS_H_

#include <string>
#include <vector>

#include <sys/types.h>

namespace Kes::test {

/// A program that runs beside the test. It reads nothing; what it says goes to a file.
class Process {
public:
    /// @param args      the program's path and its arguments
    /// @param log_name  receives standard output and standard error
    /// @throws std::runtime_error when it cannot be started
    Process(std::vector<std::string> args, const std::string& log_name);

    /// Ends it if it still runs.
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    bool is_running();

    /// Asks it to end (SIGTERM) and waits until it has.
    void stop();

    /// Waits until it ends by itself.
    /// @return its exit code; 128 + number when a signal ended it
    int wait();

private:
    void store_status(int status);

    pid_t pid_ = -1; // -1 once it has ended
    int exit_code_ = -1;
};

/// Runs a program to its end.
/// @return what it wrote
/// @throws std::runtime_error with what it wrote when its exit code is not 0
std::string run_program(const std::vector<std::string>& args);

/// Runs a command line of the shell to its end. The test fails when its exit code is not 0.
/// @return what it wrote on its standard output
std::string shell_output(const std::string& command);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_PROCESS_H_
