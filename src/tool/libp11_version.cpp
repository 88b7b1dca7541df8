#include "tool/libp11_version.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <sstream>

namespace Kes::tool {
namespace {

using Known = Libp11Version::Known;
using System = Libp11Experience::System;

constexpr const char* threads_crash =
    "crashes, or fails to sign, when several threads sign; without this library too";
constexpr const char* none_found = "none found; a module that refuses sessions was not tried";

constexpr std::array<Libp11Experience, 13> table{{
    {"0.4.11", System::any, "refused", "do not use", State::error},
    {"0.4.12", System::linux_like, "those of 0.4.12", "use", State::ok},
    {"0.4.13", System::linux_like, "those of 0.4.13", "use, but free all keys before `destroy()`",
     State::warning},
    {"0.4.21", System::linux_like, "those of 0.4.21", "not tested enough", State::note},
    {"0.4.12", System::windows, "those of 0.4.12", "use 0.4.16 or later", State::warning},
    {"0.4.13", System::windows, "those of 0.4.13", "use 0.4.16 or later", State::warning},
    {"0.4.14", System::windows, threads_crash, "do not use", State::error},
    {"0.4.15", System::windows, threads_crash, "do not use", State::error},
    {"0.4.16", System::windows, none_found, "use", State::ok},
    {"0.4.17", System::windows, none_found, "use", State::ok},
    {"0.4.18", System::windows, none_found, "use", State::ok},
    {"0.4.19", System::windows, none_found, "use", State::ok},
    {"0.4.20", System::windows, none_found, "use", State::ok},
}};

using Numbers = std::array<int, 3>;

/// The numbers of "0.4.12".
Numbers numbers_of(const std::string& version) {
    Numbers numbers{};
    std::istringstream text(version);
    for (int& number : numbers) {
        text >> number;
        text.ignore(); // the dot
    }
    return numbers;
}

Libp11Version from_exports(const BinaryFile& file) {
    if (!file.exports("PKCS11_CTX_new")) return {}; // the engine exports no function of libp11
    if (!file.exports("PKCS11_update_slots")) return {Known::earlier, "0.4.12", "exports"};
    if (!file.exports("PKCS11_enumerate_keys_ext")) return {Known::exactly, "0.4.12", "exports"};
    return {Known::at_least, "0.4.13", "exports"};
}

const Libp11Experience* find_experience(const Libp11Version& version) {
    if (version.known == Known::earlier) return table.begin();
    if (version.known != Known::exactly) return nullptr;
    const Numbers numbers = numbers_of(version.number);
    if (numbers <= numbers_of(table.front().version)) return table.begin();
    const auto* found = std::find_if(table.begin(), table.end(), [&numbers](const Libp11Experience& row) {
        return row.system == this_system() && numbers_of(row.version) == numbers;
    });
    return found == table.end() ? nullptr : found;
}

/// The recommendation of the document as a sentence without its end.
std::string remedy_for(const Libp11Experience& experience) {
    if (experience.state == State::ok) return "";
    if (experience.state == State::error) return "Install a version that docs/libp11.md recommends";
    std::string text = experience.recommendation;
    std::erase(text, '`');
    text.front() = static_cast<char>(std::toupper(text.front()));
    return text;
}

} // namespace

std::string Libp11Version::text() const {
    switch (known) {
    case Known::exactly:
        return number;
    case Known::at_least:
        return number + " or later";
    case Known::earlier:
        return "earlier than " + number;
    case Known::nothing:
        break;
    }
    return "unknown";
}

Libp11Version read_libp11_version(const BinaryFile& file) {
    Libp11Version by_exports = from_exports(file);
    if (by_exports.known == Known::earlier) return by_exports; // whatever the name says
    const Libp11Version stated = read_stated_version(file);
    return stated.known == Known::nothing ? by_exports : stated;
}

std::span<const Libp11Experience> libp11_table() { return table; }

Finding judge_libp11(const BinaryFile& file, Link link) {
    const Libp11Version version = read_libp11_version(file);
    const Libp11Experience* experience = find_experience(version);
    std::string text = version.text();
    if (version.known != Known::nothing) text += std::string(" according to its ") + version.source;
    Finding line{State::note, link, link == Link::engine ? "libp11 version of the engine" : "libp11 version",
                 "", ""};
    if (experience != nullptr) {
        line.state = experience->state;
        line.remedy = remedy_for(*experience);
        if (line.state == State::error) text += std::string("; ") + experience->limits;
    } else if (version.known == Known::exactly) {
        text += "; this version was not tested";
        line.remedy = "Prefer a version that docs/libp11.md recommends";
    } else {
        line.remedy =
            "Take libp11 and its engine from the same build, in a version that docs/libp11.md recommends";
    }
    line.finding = text + ": " + file.path;
    return line;
}

} // namespace Kes::tool
