#ifndef KES_TESTS_E2E_SERVERS_WINDOWS_PROGRAM_H_
#define KES_TESTS_E2E_SERVERS_WINDOWS_PROGRAM_H_

#include <string>
#include <vector>

/// Windows programs that native tests start under Wine.
namespace Kes::test {

/// The command that starts a program of the Windows build.
/// @param folder   its working directory, where it finds the engine and other libraries
/// @param program  its name without ".exe"
std::vector<std::string> windows_command(const std::string& folder, const std::string& program,
                                         const std::vector<std::string>& arguments);

struct Outcome {
    int status;
    std::string output; ///< standard output and standard error, unchanged
};

/// Runs a command with a text as its standard input.
Outcome run_with_input(const std::vector<std::string>& command, const std::string& input);

/// Removes the carriage return that must end each line of a Windows program's output.
std::string without_carriage_returns(const std::string& text);

/// The interactive client's menu of back-ends with the default settings.
inline const std::string menu_of_backends =
    "\nPlease select cryptographic API interface:\n"
    "   ( c ) ... capi (MS CryptoAPI with csp 'Microsoft Base Smart Card Crypto Provider')\n"
    "   ( p ) ... pkcs11 (PKCS#11 with module 'itp11.dll')\n"
    "   ( s ) ... capi_store (MS CryptoAPI using Windows Cert Store)\n"
    "   ( . ) ... exit\n"
    "  => ";

/// The client's output before the server's answer, and the body of that answer.
std::string before_answer(const std::string& output);
std::string body_of(const std::string& output);

} // namespace Kes::test

#endif // KES_TESTS_E2E_SERVERS_WINDOWS_PROGRAM_H_
