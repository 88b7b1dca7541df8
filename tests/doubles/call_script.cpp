#include "call_script.h"

#include <openssl/engineerr.h>
#include <openssl/err.h>

namespace Kes::test {
namespace {

std::uint64_t hash_of(const char* text) { // FNV-1a
    std::uint64_t hash = 0xcbf29ce484222325U;
    for (; *text != '\0'; ++text)
        hash = (hash ^ static_cast<unsigned char>(*text)) * 0x100000001b3U;
    return hash;
}

/// The library number under which libp11 reports the return values of a module.
int module_errors() {
    static const int library = [] {
        static ERR_STRING_DATA texts[] = {
            {0, "PKCS#11 module"}, {ERR_PACK(0, 0, 6), "Function failed"}, {0, nullptr}};
        const int number = ::ERR_get_next_error_library();
        texts[0].error = ERR_PACK(number, 0, 0);
        ::ERR_load_strings(number, texts);
        return number;
    }();
    return library;
}

void raise(const std::string& function, int library, int reason) {
    ::ERR_new();
    ::ERR_set_debug("double.c", 1, function.c_str());
    ::ERR_set_error(library, reason, nullptr);
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
    if (failure->queue_text.empty())
        raise_error_of(function);
    else
        put_on_error_queue(failure->queue_text);
    return failure;
}

std::vector<std::string> CallScript::calls_after_step(std::size_t n) const {
    return {calls_.begin() + static_cast<std::ptrdiff_t>(step_positions_.at(n - 1)) + 1, calls_.end()};
}

std::string CallScript::function_of_step(std::size_t n) const {
    const std::string& call = calls_.at(step_positions_.at(n - 1));
    return call.substr(0, call.find('('));
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

void raise_error_of(const std::string& function) {
    constexpr int ckr_function_failed = 6;
    static const std::map<std::string, std::vector<int>> engine_errors{
        {"ENGINE_by_id", {ENGINE_R_NO_SUCH_ENGINE}},
        {"ENGINE_ctrl_cmd", {ENGINE_R_INVALID_ARGUMENT}},
        {"ENGINE_ctrl_cmd_string", {ENGINE_R_INVALID_ARGUMENT}},
        {"ENGINE_finish", {ENGINE_R_FINISH_FAILED}},
        {"ENGINE_init", {ENGINE_R_INIT_FAILED}},
        {"ENGINE_load_private_key", {ENGINE_R_FAILED_LOADING_PRIVATE_KEY}},
        {"ENGINE_load_public_key", {ENGINE_R_FAILED_LOADING_PUBLIC_KEY}},
        {"ENGINE_remove", {ENGINE_R_ENGINE_IS_NOT_IN_LIST, ENGINE_R_INTERNAL_LIST_ERROR}},
        {"ENGINE_set_default", {ENGINE_R_INIT_FAILED}}};
    // These two report a failure by a null pointer alone.
    const bool is_silent = function == "PKCS11_CTX_new" || function == "PKCS11_find_token";
    if (function.starts_with("PKCS11_") && !is_silent) raise(function, module_errors(), ckr_function_failed);
    if (const auto known = engine_errors.find(function); known != engine_errors.end())
        for (const int reason : known->second)
            raise(function, ERR_LIB_ENGINE, reason);
}

} // namespace Kes::test
