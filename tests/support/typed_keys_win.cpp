#include "typed_keys.h"

#include <conio.h>
#include <cstdio>
#include <stdexcept>
#include <utility>

namespace Kes::test {

struct TypedKeys::State {
    std::string keys;
    bool is_ended = false;

    int next() {
        if (keys.empty() && !is_ended) throw std::runtime_error("no key was pressed");
        if (keys.empty()) return EOF;
        const auto key = static_cast<unsigned char>(keys.front());
        keys.erase(0, 1);
        return key;
    }
};

} // namespace Kes::test

namespace {

Kes::test::TypedKeys::State* in_place = nullptr;

int read_key();

} // namespace

// Names for the linker option --wrap. A DLL's function is called through a pointer with the prefix "__imp_".
extern "C" {
extern decltype(&::_getch) __real___imp__getch;
extern decltype(&::_getch) __wrap___imp__getch;
decltype(&::_getch) __wrap___imp__getch = &read_key;
}

namespace Kes::test {

TypedKeys::TypedKeys() : state_(std::make_unique<State>()) { in_place = state_.get(); }

TypedKeys::~TypedKeys() { in_place = nullptr; }

void TypedKeys::press(const std::string& keys) { state_->keys += keys; }

void TypedKeys::end() { state_->is_ended = true; }

std::string TypedKeys::unread() { return std::exchange(state_->keys, ""); }

} // namespace Kes::test

namespace {

int read_key() { return in_place == nullptr ? __real___imp__getch() : in_place->next(); }

} // namespace
