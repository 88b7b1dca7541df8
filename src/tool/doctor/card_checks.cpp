#include <string>

#include "tool/doctor/checks.h"
#include "tool/pin_options.h"
#include "tool/printable.h"
#include "utils/error.h"

namespace Kes::tool {
namespace {

constexpr std::size_t longest_label = 80;

Finding card_line(State state, const Text& finding, const Text& remedy) {
    return {state, Link::card, "card", finding, remedy};
}

Text describe_token(const TokenInfo& token) {
    return Text("token '")
        .add_personal(printable(token.label, longest_label))
        .add("' (" + printable(token.manufacturer, longest_label) + ", " +
             printable(token.model, longest_label) + ", serial number ")
        .add_personal(printable(token.serial, longest_label))
        .add(") in reader '" + printable(token.reader, longest_label) + "'");
}

/// What the flags of the token in use mean for a login.
Findings check_flags(const TokenInfo& token) {
    Findings findings;
    const std::string unlock = "Unlock or reset it with the tool of the card's maker";
    if (!token.is_initialized)
        findings.push_back(card_line(State::error, "the token is not initialized",
                                     "Initialize it with the tool of the card's maker, or use another card"));
    if (token.is_locked)
        findings.push_back(card_line(State::error, "the PIN is locked", unlock));
    else if (token.is_final_try)
        findings.push_back(card_line(
            State::warning, "one more wrong PIN locks the token",
            "Find out the right PIN before the next try, which resets the count; if nobody knows it, "
            "reset the PIN with the tool of the card's maker"));
    else if (token.is_pin_count_low)
        findings.push_back(card_line(State::warning, "a wrong PIN was entered since the last login",
                                     "Log in with the right PIN, which resets the count"));
    if (token.is_initialized && token.is_login_required && !token.is_pin_set)
        findings.push_back(
            card_line(State::warning, "the token reports that it has no PIN for users", unlock));
    if (token.must_pin_be_changed)
        findings.push_back(card_line(State::warning, "the PIN must be changed before the token can be used",
                                     "Change it with the tool of the card's maker"));
    if (token.has_pin_pad)
        findings.push_back(
            card_line(State::note, "the reader has a PIN pad, so that clients need no PIN", ""));
    return findings;
}

Findings describe_tokens(Context& context, const std::vector<TokenInfo>& tokens) {
    Findings findings;
    Text others;
    for (const TokenInfo& token : tokens) {
        context.names.insert(context.names.end(), {token.label, token.serial});
        if (!token.is_used) {
            others.add(others.empty() ? "" : " and ").add(describe_token(token));
            continue;
        }
        context.token = token;
        findings.push_back(card_line(State::ok, describe_token(token), ""));
        const Findings flags = check_flags(token);
        findings.insert(findings.end(), flags.begin(), flags.end());
    }
    if (!others.empty())
        findings.push_back(card_line(
            State::warning, Text("not used, because the library takes the first token: ").add(others),
            "If the wrong card is used, remove it or its reader"));
    return findings;
}

Finding login_line(State state, const std::string& finding, const std::string& remedy) {
    return {state, Link::card, "login", finding, remedy};
}

/// Why no login may be tried; "" if it may.
std::string refusal(const std::optional<TokenInfo>& token) {
    if (!token) return "";
    if (token->is_locked) return "the PIN is locked";
    if (token->is_final_try) return "the token reports its final try, and a wrong PIN would lock it";
    return "";
}

Finding log_in(Context& context) {
    const std::string label = context.token ? printable(context.token->label, longest_label) : "";
    Pin pin;
    try {
        pin = context.request.pin.read(label.empty() ? "the token" : label);
    } catch (const std::exception& error) {
        return login_line(State::error, error.what(),
                          "Give the PIN with --login, --pin-stdin, --pin-file or --pin-env");
    }
    try {
        context.survey = survey_keys(context.backend(), context.settings(), true, pin);
    } catch (const ErrorBase& error) {
        return login_line(
            State::error, one_line(error.what()),
            "If the PIN is incorrect, find out the right one before the next try: each wrong PIN "
            "brings the card closer to being locked");
    }
    return login_line(State::ok, "the PIN is right", "");
}

} // namespace

Findings check_card(Context& context) {
    try {
        context.is_pin_required = context.backend().read_card(context.settings(), false);
    } catch (const ErrorBase& error) {
        return {
            card_line(State::error, one_line(error.what()),
                      "Insert the card, and check that its reader is connected and its driver installed")};
    }
    Findings findings = describe_tokens(context, context.backend().tokens());
    if (findings.empty())
        findings.push_back(card_line(State::ok, "the provider of the keys can be opened", ""));
    return findings;
}

Findings check_login(Context& context) {
    if (!context.is_pin_required) return {login_line(State::ok, "the library needs no PIN here", "")};
    if (!context.request.is_login_wanted)
        return {login_line(State::note, "not tried, because no option asks for it",
                           "Add --login to try the PIN once, and to see all keys")};
    if (const std::string reason = refusal(context.token); !reason.empty())
        return {
            login_line(State::warning, "not tried: " + reason,
                       "See the line of the check 'card'; with the right PIN, marvo list --login --final-try "
                       "resets the count")};
    return {log_in(context)};
}

} // namespace Kes::tool
