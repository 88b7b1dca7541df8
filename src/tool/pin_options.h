#ifndef KES_TOOL_PIN_OPTIONS_H_
#define KES_TOOL_PIN_OPTIONS_H_

#include <string>
#include <vector>

#include "base/token_info.h"
#include "utils/pin.h"

namespace CLI {
class App;
}

namespace Kes::tool {

/// The options that say where a command gets the PIN from. A PIN is never an argument, because every user of
/// the machine can read the arguments of a program.
class PinOptions {
public:
    /// Adds --pin-stdin, --pin-file and --pin-env, which exclude each other.
    void add_to(CLI::App& command);

    /// Adds --final-try.
    void add_final_try_to(CLI::App& command);

    /// Whether the command line names a source, so that the user wants a login.
    bool is_given() const { return from_stdin || !file.empty() || !variable.empty(); }

    /// Reads the PIN from the source on the command line. Without one, asks on the terminal, without echo.
    /// @param token  the name of the token, for the prompt
    /// @throws std::runtime_error if there is no PIN, or if it has more than max_pin_length bytes
    Pin read(const std::string& token) const;

    /// The same for the token in use, whose label is in the prompt.
    /// @param tokens  all tokens; none if the back-end knows no tokens
    /// @throws std::runtime_error also if a wrong PIN would lock the token and --final-try is missing, or if the
    ///         PIN is locked
    Pin read_for(const std::vector<TokenInfo>& tokens) const;

    static constexpr std::size_t max_pin_length = 255;

private:
    void require_try(const TokenInfo& token) const;

    bool from_stdin = false;
    bool allows_final_try = false;
    std::string file;
    std::string variable;
};

} // namespace Kes::tool

#endif // KES_TOOL_PIN_OPTIONS_H_
