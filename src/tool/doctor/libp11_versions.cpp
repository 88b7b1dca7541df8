#include "tool/doctor/libp11_versions.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <regex>

#include "tool/binary_file.h"

namespace Kes::tool {
namespace {

constexpr const char* threads =
    "crashes, or fails to sign, when several threads sign; without this library too";
constexpr const char* none_found = "none found; a module that refuses sessions was not tried";

constexpr std::array<Libp11Version, 12> versions{{
    {"0.4.12", "Linux", "those of 0.4.12", "use"},
    {"0.4.13", "Linux", "those of 0.4.13", "use, but free all keys before destroy()"},
    {"0.4.21", "Linux", "those of 0.4.21", "not tested enough"},
    {"0.4.12", "Windows", "those of 0.4.12", "use 0.4.16 or later"},
    {"0.4.13", "Windows", "those of 0.4.13", "use 0.4.16 or later"},
    {"0.4.14", "Windows", threads, "do not use"},
    {"0.4.15", "Windows", threads, "do not use"},
    {"0.4.16", "Windows", none_found, "use"},
    {"0.4.17", "Windows", none_found, "use"},
    {"0.4.18", "Windows", none_found, "use"},
    {"0.4.19", "Windows", none_found, "use"},
    {"0.4.20", "Windows", none_found, "use"},
}};

State state_of(const std::string& recommendation) {
    if (recommendation == "use" || recommendation.starts_with("use,")) return State::ok;
    return recommendation == "do not use" ? State::error : State::warning;
}

Finding line(State state, const std::string& finding, const std::string& remedy) {
    return {state, Link::library, "libp11 version", finding, remedy};
}

} // namespace

std::span<const Libp11Version> libp11_versions() { return versions; }

Finding judge_libp11(const std::string& version, const std::string& system, const std::string& file) {
    const std::string table = "Compare it with the table in libp11.md of the documents";
    if (version.empty()) return line(State::note, file + " has an unknown version, 0.4.12 or later", table);
    const auto* row = std::find_if(versions.begin(), versions.end(), [&](const Libp11Version& known) {
        return known.version == version && known.system == system;
    });
    const std::string name = file + " is libp11 " + version;
    if (row == versions.end())
        return line(State::warning, name + ", which was not tested on " + system, table);
    const State state = state_of(row->recommendation);
    return line(state, name + "; its limits: " + row->limits + "; recommendation: " + row->recommendation,
                state == State::ok ? "" : "Install a version that the table in libp11.md recommends");
}

std::string read_libp11_version(const std::string& file) {
    std::smatch match;
    const std::string resource = inspect_file(file).version;
    if (std::regex_match(resource, match, std::regex(R"((\d+\.\d+\.\d+)(\.\d+)?)"))) return match[1];
    const std::string name = std::filesystem::canonical(file).filename().string();
    if (std::regex_search(name, match, std::regex(R"(-(0\.4\.\d+))"))) return match[1];
    // On Linux, the name has the version of the binary interface, which only this release of libp11 has.
    return name == "libp11.so.3.5.0" ? "0.4.12" : "";
}

} // namespace Kes::tool
