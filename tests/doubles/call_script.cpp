#include "call_script.h"

#include <openssl/err.h>

namespace Kes::test {
namespace {

std::uint64_t hash_of(const char* text) { // FNV-1a
    std::uint64_t hash = 0xcbf29ce484222325U;
    for (; *text != '\0'; ++text)
        hash = (hash ^ static_cast<unsigned char>(*text)) * 0x100000001b3U;
    return hash;
}

} // namespace

CallScript& CallScript::instance() {
    static CallScript script;
    return script;
}

void CallScript::reset() {
    auto observer = std::move(observer_);
    *this = CallScript();
    observer_ = std::move(observer);
    ::ERR_clear_error();
}

const Failure* CallScript::step(const std::string& function, const std::string& arguments) {
    step_positions_.push_back(calls_.size());
    note(function + "(" + arguments + ")");
    const Failure* failure = nullptr;
    if (const auto planned = by_step_.find(steps()); planned != by_step_.end()) failure = &planned->second;
    if (const auto planned = by_function_.find(function); planned != by_function_.end())
        failure = &planned->second;
    if (failure == nullptr) return nullptr;
    if (failure->throws_int) throw 42;
    if (!failure->queue_text.empty()) put_on_error_queue(failure->queue_text);
    return failure;
}

std::vector<std::string> CallScript::calls_after_step(std::size_t n) const {
    return {calls_.begin() + static_cast<std::ptrdiff_t>(step_positions_.at(n - 1)) + 1, calls_.end()};
}

void CallScript::clear_failures() {
    by_step_.clear();
    by_function_.clear();
}

void CallScript::set_right_pin(const char* pin) { right_pin_hash_ = hash_of(pin); }

bool CallScript::is_right_pin(const char* pin) const {
    return pin != nullptr && right_pin_hash_ && *right_pin_hash_ == hash_of(pin);
}

std::string CallScript::describe_pin(const char* pin) const {
    if (pin == nullptr) return "no pin";
    if (*pin == '\0') return "empty pin";
    return is_right_pin(pin) ? "right pin" : "wrong pin";
}

void put_on_error_queue(const std::string& text) {
    constexpr int reason = 160; // CKR_PIN_INCORRECT
    ::ERR_new();
    ::ERR_set_debug("double.c", 1, "scripted");
    ::ERR_set_error(ERR_LIB_USER, reason, "%s", text.c_str());
}

} // namespace Kes::test
