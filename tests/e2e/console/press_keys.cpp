// Puts key presses into its console's input and then runs a program there:
//
//     press_keys 27,3,255 <program> <argument>...
//
// The numbers are character codes. Wine's console cannot receive these characters from a terminal.
#include <cstdio>
#include <sstream>
#include <string>

#include <windows.h>

namespace {

bool press(HANDLE console, int character) {
    INPUT_RECORD key{};
    key.EventType = KEY_EVENT;
    key.Event.KeyEvent.bKeyDown = TRUE;
    key.Event.KeyEvent.wRepeatCount = 1;
    key.Event.KeyEvent.uChar.AsciiChar = static_cast<char>(character);
    DWORD written = 0;
    return ::WriteConsoleInputA(console, &key, 1, &written) != FALSE && written == 1;
}

/// Switches the console to unprocessed input, which keeps CTRL-C as a character.
bool press_all(const std::string& numbers) {
    HANDLE console = ::GetStdHandle(STD_INPUT_HANDLE);
    DWORD mode = 0;
    if (::GetConsoleMode(console, &mode) == FALSE) return false;
    if (::SetConsoleMode(console, mode & ~static_cast<DWORD>(ENABLE_PROCESSED_INPUT)) == FALSE) return false;
    std::istringstream list(numbers);
    for (std::string number; std::getline(list, number, ',');)
        if (!press(console, std::stoi(number))) return false;
    return true;
}

/// @return the program's exit status
DWORD run(std::string command_line) {
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (::CreateProcessA(nullptr, command_line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                         &process) == FALSE)
        return 3;
    ::WaitForSingleObject(process.hProcess, INFINITE);
    DWORD status = 3;
    ::GetExitCodeProcess(process.hProcess, &status);
    ::CloseHandle(process.hThread);
    ::CloseHandle(process.hProcess);
    return status;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 3) return 2;
    if (!press_all(argv[1])) {
        std::fprintf(stderr, "press_keys: cannot press the keys %s\n", argv[1]);
        return 2;
    }
    std::string command_line;
    for (int i = 2; i < argc; ++i)
        command_line += "\"" + std::string(argv[i]) + "\" ";
    return static_cast<int>(run(command_line));
}
