#include "tool/pin_options.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string_view>

#include <CLI/CLI.hpp>
#include <openssl/err.h>
#include <openssl/ui.h>

#include "tool/printable.h"

namespace Kes::tool {
namespace {

/// Memory for a PIN that is being read, with a zero at the end. Overwritten when it goes out of scope.
class PinBuffer {
public:
    PinBuffer() = default;
    ~PinBuffer() { overwrite(characters.data(), characters.size()); }
    PinBuffer(const PinBuffer&) = delete;
    PinBuffer& operator=(const PinBuffer&) = delete;

    // One character more than a PIN may have, to notice a longer one, and the zero.
    std::array<char, PinOptions::max_pin_length + 2> characters{};
};

// The errors of this file do not repeat the names that the user gave, because a user who misunderstands the
// options gives the PIN itself.
std::string too_long(const std::string& source) {
    return "the PIN from " + source + " is longer than " + std::to_string(PinOptions::max_pin_length) +
           " bytes";
}

Pin make_pin(const char* characters, const std::string& source) {
    const std::size_t length = std::strlen(characters);
    if (length == 0) throw std::runtime_error("no PIN was given: " + source + " is empty");
    if (length > PinOptions::max_pin_length) throw std::runtime_error(too_long(source));
    return Pin(characters);
}

/// Rejects a file that an editor did not save as plain text: its bytes are not the PIN, and would cost a try.
void require_plain_text(std::string_view line, const std::string& source) {
    for (const std::string_view mark : {"\xEF\xBB\xBF", "\xFF\xFE", "\xFE\xFF"})
        if (line.starts_with(mark))
            throw std::runtime_error("the PIN from " + source +
                                     " begins with a byte order mark; save it as plain text without one");
    if (line.find('\0') != std::string_view::npos)
        throw std::runtime_error("the PIN from " + source +
                                 " contains a zero byte; save it as plain text, not as UTF-16");
}

Pin read_first_line(std::FILE* stream, const std::string& source) {
    // Without a buffer, the C runtime keeps no copy of the PIN.
    std::setvbuf(stream, nullptr, _IONBF, 0);
    PinBuffer pin;
    std::size_t length = 0;
    for (int c = std::fgetc(stream); c != EOF && c != '\n' && c != '\r'; c = std::fgetc(stream)) {
        if (length == pin.characters.size() - 1) break; // too long, which make_pin() reports
        pin.characters[length++] = static_cast<char>(c);
    }
    require_plain_text({pin.characters.data(), length}, source);
    return make_pin(pin.characters.data(), source);
}

Pin read_file(const std::string& file) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(std::fopen(file.c_str(), "rb"),
                                                                 &std::fclose);
    if (!stream)
        throw std::runtime_error(std::string("cannot open the file that --pin-file names: ") +
                                 std::strerror(errno));
    return read_first_line(stream.get(), "the file that --pin-file names");
}

Pin read_variable(const std::string& name) {
    const char* value = std::getenv(name.c_str());
    const std::string source = "the environment variable that --pin-env names";
    if (value == nullptr) throw std::runtime_error(source + " is not set");
    return make_pin(value, source);
}

/// Why the user's input could not be read. OpenSSL's error queue is emptied.
std::string describe_input_error() {
    const unsigned long code = ::ERR_peek_error();
    ::ERR_clear_error();
    const bool is_too_long = ERR_GET_LIB(code) == ERR_LIB_UI && ERR_GET_REASON(code) == UI_R_RESULT_TOO_LARGE;
    return is_too_long ? too_long("the input") : "no PIN was entered";
}

Pin ask_on_terminal(const std::string& token) {
    PinBuffer pin;
    ::ERR_clear_error();
    const std::string prompt = "PIN of " + token + ": ";
    if (::UI_UTIL_read_pw_string(pin.characters.data(), static_cast<int>(pin.characters.size()),
                                 prompt.c_str(), 0) != 0)
        throw std::runtime_error(describe_input_error());
    return make_pin(pin.characters.data(), "the input");
}

std::string check_name(const std::string& name) { return name.empty() ? "the name is empty" : ""; }

} // namespace

void PinOptions::add_to(CLI::App& command) {
    const std::string group = "PIN";
    CLI::Option* by_stdin =
        command.add_flag("--pin-stdin", from_stdin, "Read the PIN from the first line of standard input");
    by_stdin->disable_flag_override();
    CLI::Option* by_file =
        command.add_option("--pin-file", file, "Read the PIN from the first line of a file");
    CLI::Option* by_variable =
        command.add_option("--pin-env", variable, "Read the PIN from an environment variable");
    by_file->type_name("FILE")->excludes(by_stdin);
    by_variable->type_name("NAME")->excludes(by_stdin)->excludes(by_file);
    for (CLI::Option* option : {by_file, by_variable})
        option->check(CLI::Validator(check_name, ""));
    for (CLI::Option* option : {by_stdin, by_file, by_variable})
        option->group(group);
}

void PinOptions::add_final_try_to(CLI::App& command) {
    command
        .add_flag("--final-try", allows_final_try,
                  "Log in although the token reports that one more wrong PIN locks it")
        ->disable_flag_override()
        ->group("PIN");
}

void PinOptions::require_try(const TokenInfo& token) const {
    if (token.is_locked)
        throw std::runtime_error(
            "no login was tried: the PIN is locked; unlock or reset it with the tool of the card's maker");
    if (token.is_final_try && !allows_final_try)
        throw std::runtime_error(
            "no login was tried: the token reports that one more wrong PIN locks it; if you "
            "are sure of the PIN, add --final-try");
}

Pin PinOptions::read_for(const std::vector<TokenInfo>& tokens) const {
    const auto used =
        std::find_if(tokens.begin(), tokens.end(), [](const TokenInfo& token) { return token.is_used; });
    if (used == tokens.end()) return read("the token");
    require_try(*used);
    return read(used->label.empty() ? "the token" : printable(used->label));
}

Pin PinOptions::read(const std::string& token) const {
    if (from_stdin) return read_first_line(stdin, "standard input");
    if (!file.empty()) return read_file(file);
    if (!variable.empty()) return read_variable(variable);
    return ask_on_terminal(token);
}

} // namespace Kes::tool
