#include "dll_folder.h"

#include <array>
#include <fstream>

#include "support/child.h"
#include "utils/windows_api.h"

namespace Kes::test {

const std::filesystem::path DllFolder::bin = MARVO_BIN_DIR;
const std::filesystem::path DllFolder::wrong = MARVO_WRONG_DIR;
const std::filesystem::path DllFolder::doubles = MARVO_DOUBLES_DIR;

DllFolder::DllFolder() {
    for (const char* name : {MARVO_DLL_NAME, "libcrypto-3-x64.dll", "dll_client.exe"})
        put(bin / name, folder);
}

void DllFolder::put(const std::filesystem::path& file, const std::filesystem::path& target_folder) {
    put_as(file, target_folder / file.filename());
}

void DllFolder::put_as(const std::filesystem::path& file, const std::filesystem::path& target) {
    std::filesystem::copy_file(file, target);
}

void DllFolder::put_text_file(const std::filesystem::path& target) {
    std::ofstream(target) << "This is not a DLL.\n";
}

void DllFolder::move_client_to(const std::filesystem::path& new_folder) {
    const std::filesystem::path target = new_folder / client_.filename();
    std::filesystem::rename(client_, target);
    client_ = target;
}

std::filesystem::path DllFolder::make_folder(const std::string& name) const {
    std::filesystem::path path = dir.path() / name;
    path.make_preferred();
    std::filesystem::create_directory(path);
    return path;
}

std::string DllFolder::run(const Lines& commands) const {
    std::string arguments = " \"" + (folder / MARVO_DLL_NAME).string() + "\"";
    for (const std::string& command : commands)
        arguments += " \"" + command + "\"";
    return run_to_end(client_, arguments);
}

std::string DllFolder::run_other(const std::filesystem::path& program) const {
    return run_to_end(program, "");
}

std::string DllFolder::run_to_end(const std::filesystem::path& program, const std::string& arguments) const {
    std::array<char, MAX_PATH> system{};
    ::GetSystemDirectoryA(system.data(), system.size());
    const EnvVar path("PATH", path_variable + (path_variable.empty() ? "" : ";") + system.data());
    const std::string output = dir.file("output");
    std::filesystem::remove(output);
    const long long exit_code = run_program(program, "\"" + output + "\"" + arguments, current);
    if (exit_code != 0) return "ended with " + std::to_string(exit_code) + "\n" + read_file(output);
    return read_file(output);
}

Lines DllFolder::logged_errors() const {
    Lines errors;
    for (const std::string& line : log_lines(dir.file("log")))
        if (line.starts_with("<error> ")) errors.push_back(line);
    return errors;
}

} // namespace Kes::test
