#include "test_card.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <map>
#include <openssl/evp.h>
#include <stdexcept>

#include "utils/helper.h"

namespace Kes::test {
namespace {

const std::filesystem::path card_files = MARVO_CARD_FILES;

std::string hash_of(const char* text) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> hash{};
    std::size_t length = 0;
    ::EVP_Q_digest(nullptr, "SHA256", nullptr, text, std::strlen(text), hash.data(), &length);
    return Helper::bytes_to_hex(hash.data(), length, "");
}

} // namespace

TestCard::TestCard()
    : token_{{"label", "Card 1"},
             {"manufacturer", "Card maker"},
             {"model", "Model 7"},
             {"serial", "0042"},
             {"initialized", "1"},
             {"login_required", "1"},
             {"pin_pad", "0"},
             {"pin_final_try", "0"},
             {"pin_locked", "0"},
             {"second_label", ""},
             {"pin_sha256", hash_of(card_pin)}} {
    insert();
}

void TestCard::set(const std::string& name, const std::string& value) {
    const auto line = std::find_if(token_.begin(), token_.end(),
                                   [&](const auto& setting) { return setting.first == name; });
    if (line == token_.end()) throw std::runtime_error("a card has no " + name);
    line->second = value;
    insert();
}

void TestCard::pull_out() const { std::filesystem::remove(dir_.file("token")); }

void TestCard::insert() const {
    Lines lines;
    for (const auto& [name, value] : token_)
        lines.push_back(name + "=" + value);
    write("token", lines);
}

void TestCard::add(const std::string& id, const std::string& kinds, const std::string& file,
                   const std::string& label) {
    for (const char* ending : {".crt", ".key"})
        std::filesystem::copy_file(card_files / (file + ending), dir_.file(file + ending),
                                   std::filesystem::copy_options::overwrite_existing);
    objects_.push_back(id + "=" + kinds + " " + file + " " + label);
    write("objects", objects_);
}

void TestCard::fail_step(std::size_t number) const { write("fail", {"step=" + std::to_string(number)}); }

void TestCard::fail_function(const std::string& function, unsigned long code) const {
    write("fail", {function + "=" + std::to_string(code)});
}

void TestCard::clear_failures() const { std::filesystem::remove(dir_.file("fail")); }

Lines TestCard::record() const { return split_lines(read_file(dir_.file("calls"))); }

Lines TestCard::calls_after_step(std::size_t number) const {
    Lines calls;
    std::size_t steps_seen = 0;
    for (const std::string& line : record()) {
        const bool is_step = line.starts_with("step: ");
        if (steps_seen >= number && (is_step || line.starts_with("call: "))) calls.push_back(line.substr(6));
        if (is_step) ++steps_seen;
    }
    return calls;
}

Lines TestCard::unbalanced() const {
    std::map<std::string, int> held;
    for (const std::string& name : marked("acquired: "))
        ++held[name];
    for (const std::string& name : marked("released: "))
        --held[name];
    Lines names;
    for (const auto& [name, count] : held)
        if (count != 0) names.push_back(name + ": " + std::to_string(count));
    return names;
}

Lines TestCard::marked(const std::string& mark) const {
    Lines lines;
    for (const std::string& line : record())
        if (line.starts_with(mark)) lines.push_back(line.substr(mark.size()));
    return lines;
}

void TestCard::write(const std::string& name, const Lines& lines) const {
    std::ofstream file(dir_.file(name), std::ios::binary | std::ios::trunc);
    for (const std::string& line : lines)
        file << line << '\n';
    if (!file.flush()) throw std::runtime_error("the card's file " + name + " cannot be written");
}

} // namespace Kes::test
