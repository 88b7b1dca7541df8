#include "typed_keys.h"

#include <stdexcept>
#include <unistd.h>

namespace Kes::test {

/// A pipe replaces the standard input.
struct TypedKeys::State {
    int stdin_before = ::dup(STDIN_FILENO);
    int keyboard = -1;
};

TypedKeys::TypedKeys() : state_(std::make_unique<State>()) {
    int ends[2] = {-1, -1};
    if (::pipe(ends) != 0) throw std::runtime_error("no pipe can be made");
    if (ends[0] != STDIN_FILENO) {
        ::dup2(ends[0], STDIN_FILENO);
        ::close(ends[0]);
    }
    state_->keyboard = ends[1];
}

TypedKeys::~TypedKeys() {
    end();
    if (state_->stdin_before >= 0) {
        ::dup2(state_->stdin_before, STDIN_FILENO);
        ::close(state_->stdin_before);
    } else {
        ::close(STDIN_FILENO); // it was closed before
    }
}

void TypedKeys::press(const std::string& keys) {
    if (::write(state_->keyboard, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size()))
        throw std::runtime_error("no keys can be pressed");
}

void TypedKeys::end() {
    if (state_->keyboard >= 0) ::close(state_->keyboard);
    state_->keyboard = -1;
}

std::string TypedKeys::unread() {
    std::string rest;
    for (char byte = 0; ::read(STDIN_FILENO, &byte, 1) == 1;)
        rest += byte;
    return rest;
}

} // namespace Kes::test
