#include "call_log.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <openssl/evp.h>

#include "utils/windows_api.h"

namespace Kes::test {
namespace {

constexpr const char* step_mark = "step: ";

// Read from the system, because each DLL's C runtime has its own copy of the environment.
std::string card_folder() {
    std::string folder(MAX_PATH, '\0');
    folder.resize(
        ::GetEnvironmentVariableA("MARVO_TEST_CARD", folder.data(), static_cast<DWORD>(folder.size())));
    return folder;
}

void record(const std::string& line) {
    const std::string file = card_file("calls");
    if (!file.empty()) std::ofstream(file, std::ios::app | std::ios::binary) << line << '\n';
}

/// The number of steps in the record. All test doubles write to it, so each must count in the file.
unsigned long recorded_steps() {
    std::ifstream file(card_file("calls"), std::ios::binary);
    unsigned long count = 0;
    for (std::string line; std::getline(file, line);)
        if (line.starts_with(step_mark)) ++count;
    return count;
}

unsigned long number_of(const std::string& text) { return std::strtoul(text.c_str(), nullptr, 0); }

unsigned long planned_failure(const std::string& function, unsigned long number) {
    for (const auto& [name, value] : read_settings("fail")) {
        if (name == function) return number_of(value);
        if (name != "step" || number_of(value) != number) continue;
        const auto comma = value.find(',');
        return comma == std::string::npos ? general_error : number_of(value.substr(comma + 1));
    }
    return card_ok;
}

std::string hash_of(const char* text) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> hash{};
    std::size_t length = 0;
    ::EVP_Q_digest(nullptr, "SHA256", nullptr, text, std::string_view(text).size(), hash.data(), &length);
    std::string hex;
    for (std::size_t i = 0; i < length; ++i) {
        std::array<char, 3> digits{};
        std::snprintf(digits.data(), digits.size(), "%02x", static_cast<unsigned>(hash[i]));
        hex += digits.data();
    }
    return hex;
}

} // namespace

std::string card_file(const std::string& name) {
    const std::string folder = card_folder();
    return folder.empty() ? "" : folder + "\\" + name;
}

std::vector<std::pair<std::string, std::string>> read_settings(const std::string& name) {
    std::vector<std::pair<std::string, std::string>> settings;
    std::ifstream file(card_file(name), std::ios::binary);
    for (std::string line; std::getline(file, line);) {
        const auto equals = line.find('=');
        if (equals != std::string::npos)
            settings.emplace_back(line.substr(0, equals), line.substr(equals + 1));
    }
    return settings;
}

unsigned long step(const std::string& function, const std::string& arguments) {
    record(step_mark + function + "(" + arguments + ")");
    return planned_failure(function, recorded_steps());
}

void note_call(const std::string& call) { record("call: " + call); }

void note_violation(const std::string& text) { record("violation: " + text); }

void note_acquired(const std::string& name) { record("acquired: " + name); }

void note_released(const std::string& name) { record("released: " + name); }

std::string describe_pin(const char* pin) {
    if (pin == nullptr) return "no pin";
    if (*pin == '\0') return "empty pin";
    const std::pair<std::string, std::string> right{"pin_sha256", hash_of(pin)};
    const auto settings = read_settings("token");
    return std::find(settings.begin(), settings.end(), right) == settings.end() ? "wrong pin" : "right pin";
}

} // namespace Kes::test
