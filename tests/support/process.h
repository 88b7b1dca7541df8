#ifndef KES_TESTS_SUPPORT_PROCESS_H_
#define KES_TESTS_SUPPORT_PROCESS_H_

#include <string>
#include <vector>

#include <sys/types.h>

namespace Kes::test {

/// A program that runs in the background during a test. Its input is empty; its output goes to a file.
class Process {
public:
    /// @param args      the program's path and its arguments
    /// @param log_name  the file for standard output and standard error
    /// @throws std::runtime_error if the program cannot be started
    Process(std::vector<std::string> args, const std::string& log_name);

    /// Stops the program if it is still running.
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    bool is_running();

    /// Sends SIGTERM and waits for the program's end.
    void stop();

    /// Waits until the program ends by itself.
    /// @return its exit code; 128 + the signal's number if a signal ended it
    int wait();

private:
    void store_status(int status);

    pid_t pid_ = -1; // -1 after the program's end
    int exit_code_ = -1;
};

/// Runs a program and waits for its end.
/// @return its output
/// @throws std::runtime_error with the output if the exit code is not 0
std::string run_program(const std::vector<std::string>& args);

/// Runs a command line of the shell to its end. The test fails when its exit code is not 0.
/// @return what it wrote on its standard output
std::string shell_output(const std::string& command);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_PROCESS_H_
