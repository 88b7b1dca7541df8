#include "tool/standard_output.h"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <string>

namespace Kes::tool {

StandardOutput::StandardOutput() : original(std::cout.rdbuf(this)) {}

StandardOutput::~StandardOutput() { std::cout.rdbuf(original); }

void StandardOutput::finish() const {
    std::cout.flush();
    if (!std::cout)
        throw std::runtime_error(std::string("cannot write to standard output: ") + std::strerror(error));
}

StandardOutput::int_type StandardOutput::overflow(int_type character) {
    if (traits_type::eq_int_type(character, traits_type::eof())) return traits_type::not_eof(character);
    const int_type result = original->sputc(traits_type::to_char_type(character));
    note(!traits_type::eq_int_type(result, traits_type::eof()));
    return result;
}

std::streamsize StandardOutput::xsputn(const char* characters, std::streamsize count) {
    const std::streamsize written = original->sputn(characters, count);
    note(written == count);
    return written;
}

int StandardOutput::sync() {
    const int result = original->pubsync();
    note(result != -1);
    return result;
}

void StandardOutput::note(bool is_written) {
    if (!is_written && error == 0) error = errno;
}

} // namespace Kes::tool
