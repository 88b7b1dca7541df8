#ifndef KES_TESTS_E2E_SERVERS_WINDOWS_PROGRAM_H_
#define KES_TESTS_E2E_SERVERS_WINDOWS_PROGRAM_H_

#include <string>
#include <vector>

/// The Windows programs that tests of this system start, under Wine.
namespace Kes::test {

/// What starts a program of the Windows build.
/// @param folder   its current folder, where it finds the engine and other libraries
/// @param program  its name
std::vector<std::string> windows_command(const std::string& folder, const std::string& program,
                                         const std::vector<std::string>& arguments);

struct Outcome {
    int status;
    std::string output; ///< standard output and standard error, as they are
};

/// Runs a command with a text as its input.
Outcome run_with_input(const std::vector<std::string>& command, const std::string& input);

/// Each line of a Windows program ends with one.
std::string without_carriage_returns(const std::string& text);

/// How the interactive client asks for the back-end, with the default settings.
inline const std::string menu_of_backends =
    "\nPlease select cryptographic API interface:\n"
    "   ( c ) ... capi (MS CryptoAPI with csp 'Microsoft Base Smart Card Crypto Provider')\n"
    "   ( p ) ... pkcs11 (PKCS#11 with module 'itp11.dll')\n"
    "   ( s ) ... capi_store (MS CryptoAPI using Windows Cert Store)\n"
    "   ( . ) ... exit\n"
    "  => ";

/// What a client wrote before the server's answer, and the body of that.
std::string before_answer(const std::string& output);
std::string body_of(const std::string& output);

} // namespace Kes::test

#endif // KES_TESTS_E2E_SERVERS_WINDOWS_PROGRAM_H_
