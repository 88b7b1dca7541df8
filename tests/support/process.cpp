#include "process.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <memory>
#include <stdexcept>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support.h"

namespace Kes::test {

Process::Process(std::vector<std::string> args, const std::string& log_name) {
    // The program ends with this process, even when a timeout kills this process.
    args.insert(args.begin(), {"/usr/bin/setpriv", "--pdeathsig", "TERM"});
    std::vector<char*> argv;
    for (std::string& arg : args)
        argv.push_back(arg.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t files;
    ::posix_spawn_file_actions_init(&files);
    ::posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, log_name.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                       0600);
    ::posix_spawn_file_actions_adddup2(&files, STDOUT_FILENO, STDERR_FILENO);
    const int rc = ::posix_spawn(&pid_, argv[0], &files, nullptr, argv.data(), environ);
    ::posix_spawn_file_actions_destroy(&files);
    if (rc != 0) throw std::runtime_error("cannot start " + args[0]);
}

Process::~Process() { stop(); }

bool Process::is_running() {
    int status = 0;
    if (pid_ > 0 && ::waitpid(pid_, &status, WNOHANG) == pid_) store_status(status);
    return pid_ > 0;
}

void Process::stop() {
    if (!is_running()) return;
    ::kill(pid_, SIGTERM);
    wait();
}

int Process::wait() {
    int status = 0;
    if (pid_ > 0 && ::waitpid(pid_, &status, 0) == pid_) store_status(status);
    return exit_code_;
}

void Process::store_status(int status) {
    exit_code_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    pid_ = -1;
}

std::string run_program(const std::vector<std::string>& args) {
    const TempDir dir;
    Process process(args, dir.file("output"));
    const int exit_code = process.wait();
    const std::string output = read_file(dir.file("output"));
    if (exit_code != 0) throw std::runtime_error(args[0] + " failed: " + output);
    return output;
}

std::string shell_output(const std::string& command) {
    struct Close {
        void operator()(FILE* pipe) const { EXPECT_EQ(::pclose(pipe), 0); }
    };
    const std::unique_ptr<FILE, Close> pipe(::popen(command.c_str(), "r"));
    if (!pipe) throw std::runtime_error("cannot start " + command);
    std::string output;
    std::array<char, 4096> part{};
    for (std::size_t count = 1; count > 0;) {
        count = std::fread(part.data(), 1, part.size(), pipe.get());
        output.append(part.data(), count);
    }
    return output;
}

} // namespace Kes::test
