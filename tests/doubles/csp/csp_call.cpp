#include "csp_call.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>

#include "csp_files.h"

namespace Kes::test_card {
namespace {

/// The error of a call that fails as planned, or because the card was removed after it was opened.
std::optional<DWORD> certain_failure(const std::string& point, const std::string& container) {
    if (point != "acquire" && !Card().is_there()) return static_cast<DWORD>(SCARD_W_REMOVED_CARD);
    const std::array<std::string, 3> names{point, point + "@" + container, std::to_string(number_of_call())};
    std::ifstream faults(Card().file("faults"));
    for (std::string line; std::getline(faults, line);) {
        const std::size_t equals = line.find('=');
        if (equals == std::string::npos) continue;
        for (const std::string& name : names)
            if (line.compare(0, equals, name) == 0)
                return static_cast<DWORD>(std::strtoul(line.c_str() + equals + 1, nullptr, 0));
    }
    return std::nullopt;
}

void log(std::string line, bool is_good, DWORD error) {
    std::array<char, 24> code{};
    if (!is_good) std::snprintf(code.data(), code.size(), " !0x%lx", error);
    const Card card;
    if (card.is_there()) std::ofstream(card.file("calls"), std::ios::app) << line << code.data() << '\n';
}

} // namespace

BOOL call(const std::string& point, const std::string& container, const std::function<BOOL(Note&)>& body,
          bool is_release) {
    const DWORD error_before = ::GetLastError();
    const auto failure = certain_failure(point, container);
    Note note;
    BOOL is_good = TRUE;
    if (!failure || is_release) is_good = body(note);
    DWORD error = is_good ? ERROR_SUCCESS : ::GetLastError();
    if (failure) {
        is_good = FALSE;
        error = *failure;
    }
    log(point + "@" + container + note, is_good != FALSE, error);
    // File operations change the last error, but a successful call must not: the caller may be cleaning up
    // after another failure.
    ::SetLastError(is_good ? error_before : error);
    return is_good;
}

ULONG_PTR number_of_call() {
    ULONG_PTR number = 1;
    std::ifstream calls(Card().file("calls"));
    for (std::string line; std::getline(calls, line);)
        ++number;
    return number;
}

} // namespace Kes::test_card
