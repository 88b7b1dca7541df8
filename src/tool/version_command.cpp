#include <iostream>

#include <nlohmann/json.hpp>
#include <openssl/crypto.h>

#include "manager/build_info.h"
#include "tool/commands.h"

namespace Kes::tool {
namespace {

ExitStatus print_versions(const Command& command) {
    const char* openssl = ::OpenSSL_version(OPENSSL_VERSION_STRING);
    if (command.as_json)
        print_json(command, {{"marvo", library_version()}, {"openssl", openssl}});
    else
        std::cout << "marvo " << library_version() << "\nOpenSSL " << openssl << std::endl;
    return ExitStatus::success;
}

} // namespace

void create_version_command(CLI::App& program, Command& command) {
    command.name = "version";
    command.add_to(program, "Print the versions of the library and of OpenSSL");
    command.action = [&command] { return print_versions(command); };
}

} // namespace Kes::tool
