#include "child.h"

#include "utils/windows_api.h"

namespace Kes::test {

long long run_program(const std::filesystem::path& program, const std::string& arguments,
                      const std::filesystem::path& folder) {
    constexpr DWORD patience = 60'000;
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    std::string command = "\"" + program.string() + "\" " + arguments;
    if (::CreateProcessA(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, folder.string().c_str(),
                         &startup, &process) == 0)
        return -1;
    DWORD exit_code = 0;
    const bool has_ended = ::WaitForSingleObject(process.hProcess, patience) == WAIT_OBJECT_0 &&
                           ::GetExitCodeProcess(process.hProcess, &exit_code) != 0;
    if (!has_ended) ::TerminateProcess(process.hProcess, 1);
    ::CloseHandle(process.hThread);
    ::CloseHandle(process.hProcess);
    return has_ended ? static_cast<long long>(exit_code) : -1;
}

} // namespace Kes::test
