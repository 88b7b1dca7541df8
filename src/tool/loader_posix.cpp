#include "tool/loader_posix.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <memory>
#include <openssl/crypto.h>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <sys/auxv.h>
#include <sys/wait.h>
#include <vector>

#include "tool/file_descriptor_posix.h"

namespace Kes::tool {
namespace {

struct CloseLibrary {
    void operator()(void* library) const noexcept { ::dlclose(library); }
};

std::runtime_error no_answer(const std::string& function, int error) {
    return std::runtime_error("cannot ask the system's loader: " + function +
                              "() failed: " + std::strerror(error));
}

/// The file from which an address of this process was loaded.
std::string file_of(const void* address) {
    Dl_info info{};
    return ::dladdr(address, &info) == 0 ? "" : info.dli_fname;
}

/// What a process is started with: standard output to a pipe, standard error to nowhere.
class FileActions {
public:
    explicit FileActions(int output) {
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
        ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    }
    ~FileActions() { ::posix_spawn_file_actions_destroy(&actions); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;

    const posix_spawn_file_actions_t* get() const { return &actions; }

private:
    posix_spawn_file_actions_t actions{};
};

std::string read_all(int file) {
    std::string content;
    std::array<char, 4096> part{};
    for (ssize_t length = 0; (length = ::read(file, part.data(), part.size())) > 0;)
        content.append(part.data(), static_cast<std::size_t>(length));
    return content;
}

std::vector<char*> pointers_to(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

/// This process's environment, and the variable that makes the loader print a list instead of running code.
/// Unlike the option --list, the variable makes it continue when it does not find a library.
std::vector<std::string> environment_for_list() {
    std::vector<std::string> variables;
    for (char** variable = environ; *variable != nullptr; ++variable)
        variables.emplace_back(*variable);
    variables.emplace_back("LD_TRACE_LOADED_OBJECTS=1");
    return variables;
}

/// Starts the loader with these arguments, waits for its end, and returns its standard output.
std::string run_loader(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), loader_path());
    std::vector<std::string> environment = environment_for_list();
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw no_answer("pipe2", errno);
    const FileDescriptor reading(ends[0]);
    FileDescriptor writing(ends[1]);
    pid_t process = 0;
    const int error = ::posix_spawn(&process, arguments.front().c_str(), FileActions(writing.get()).get(),
                                    nullptr, pointers_to(arguments).data(), pointers_to(environment).data());
    if (error != 0) throw no_answer("posix_spawn", error);
    writing.close();
    std::string output = read_all(reading.get());
    ::waitpid(process, nullptr, 0);
    return output;
}

/// The loader's lines "NAME => PATH (ADDRESS)", "NAME => not found" and "PATH (ADDRESS)" as paths by names.
std::map<std::string, std::string> read_list(const std::string& output) {
    std::map<std::string, std::string> paths;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t start = line.find_first_not_of('\t');
        const std::size_t end = line.rfind(" (0x");
        const std::size_t arrow = line.find(" => ");
        if (start == std::string::npos) continue;
        if (arrow == std::string::npos) {
            const std::string path = line.substr(start, end - start);
            paths[path.substr(path.rfind('/') + 1)] = path;
        } else {
            const std::size_t value = arrow + std::strlen(" => ");
            paths[line.substr(start, arrow - start)] =
                end == std::string::npos ? "" : line.substr(value, end - value);
        }
    }
    return paths;
}

/// The path of a library that this process has loaded under the name; "" if there is none. The loader then
/// searches for no file.
std::string loaded_path(const std::string& name) {
    const std::unique_ptr<void, CloseLibrary> library(::dlopen(name.c_str(), RTLD_LAZY | RTLD_NOLOAD));
    const link_map* entry = nullptr;
    if (library) ::dlinfo(library.get(), RTLD_DI_LINKMAP, &entry);
    return entry == nullptr ? "" : entry->l_name;
}

} // namespace

std::string loader_path() {
    return file_of(reinterpret_cast<const void*>(::getauxval(AT_BASE))); // NOLINT(performance-no-int-to-ptr)
}

std::string ask_loader_for_path(const std::string& name) {
    if (std::string path = loaded_path(name); !path.empty()) return path;
    // The loader separates the names of its option by these characters.
    if (name.find_first_of(" :") != std::string::npos)
        throw std::runtime_error("cannot search for '" + name + "': the name contains a space or a colon");
    // libcrypto loads engines, so that the path inside its file counts, not that of this program.
    const std::string libcrypto = file_of(reinterpret_cast<const void*>(&::OpenSSL_version_num));
    return read_list(run_loader({"--preload", name, libcrypto}))[name];
}

std::map<std::string, std::string> ask_loader_for_dependencies(const std::string& path) {
    return read_list(run_loader({path}));
}

} // namespace Kes::tool
