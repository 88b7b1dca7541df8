#include <algorithm>
#include <string>
#include <string_view>

#include "tool/doctor/checks.h"
#include "tool/printable.h"
#include "utils/error.h"

namespace Kes::tool {
namespace {

constexpr std::size_t longest_name = 120;
constexpr std::string_view pkcs11_scheme = "pkcs11:";

Finding key_line(State state, const Text& finding, const Text& remedy) {
    return {state, Link::card, "keys", finding, remedy};
}

Text describe(const Context& context, const SurveyedKey& key) {
    Text text("'");
    text.add_personal(printable(key.name, longest_name))
        .add("' (id ")
        .add(text_of_id(context.crypto_if(), key.id));
    if (!key.certificate) return text.add(")");
    const CertificateFacts& facts = *key.certificate;
    text.add(", " + facts.key_type + " " + std::to_string(facts.key_bits) + ", ")
        .add_personal(printable(facts.subject, longest_name));
    if (!facts.is_expired) text.add(", " + days_left_text(facts));
    return text.add(")");
}

/// A certificate that is not valid now makes each login fail; other warnings depend on the server.
bool is_invalid(const SurveyedKey& key) {
    return std::any_of(key.warnings.begin(), key.warnings.end(), [](const CodedText& warning) {
        return warning.code == "expired" || warning.code == "not_yet_valid";
    });
}

bool is_usable(const SurveyedKey& key) { return key.is_offered && !is_invalid(key); }

/// @param has_usable_key  whether the client can use this key or another one
State state_of(const SurveyedKey& key, bool has_usable_key) {
    if (key.is_offered && is_invalid(key) && !has_usable_key) return State::error;
    return key.is_offered && key.warnings.empty() ? State::ok : State::warning;
}

std::string warnings_of(const SurveyedKey& key) {
    std::string text;
    for (const CodedText& warning : key.warnings)
        text += "; " + warning.text;
    return text;
}

std::string remedy_of(const SurveyedKey& key) {
    if (key.verdict.code == "no_certificate") return "Store its certificate on the card, under the same id";
    if (!key.is_offered) return "If this key is needed, change the filter settings of the client";
    for (const CodedText& warning : key.warnings) {
        if (warning.code == "expired") return "Have a new certificate issued";
        if (warning.code == "not_yet_valid") return "Check the clock of this machine, or wait";
        if (warning.code == "shadowed") return "Select it by its number, or give it another id";
    }
    return key.warnings.empty() ? ""
                                : "Check that servers accept such a certificate, or have another one issued";
}

Finding judge(const Context& context, const SurveyedKey& key, bool has_usable_key) {
    return key_line(state_of(key, has_usable_key),
                    describe(context, key).add(": " + key.verdict.text + warnings_of(key)), remedy_of(key));
}

Findings judge_all(Context& context, const std::vector<SurveyedKey>& keys) {
    const bool has_usable_key = std::any_of(keys.begin(), keys.end(), is_usable);
    Findings findings;
    for (const SurveyedKey& key : keys) {
        context.names.push_back(key.name);
        if (context.crypto_if() != OsslScardCfg::pkcs11) context.names.push_back(key.id);
        if (key.certificate) context.names.push_back(key.certificate->subject);
        findings.push_back(judge(context, key, has_usable_key));
    }
    return findings;
}

bool is_any_offered(const std::vector<SurveyedKey>& keys) {
    return std::any_of(keys.begin(), keys.end(), [](const SurveyedKey& key) { return key.is_offered; });
}

bool has_attribute(const std::string& uri, const std::string& attribute) {
    const std::string attributes = ';' + uri.substr(pkcs11_scheme.size()) + ';';
    return attributes.find(';' + attribute + ';') != std::string::npos;
}

/// Whether the engine finds the key by this name: with PKCS#11 a URI, otherwise the id itself.
bool is_name_of(const std::string& name, const SurveyedKey& key, const std::optional<TokenInfo>& token) {
    if (!name.starts_with(pkcs11_scheme)) return name == key.id;
    const bool names_token = (';' + name.substr(pkcs11_scheme.size())).find(";token=") != std::string::npos;
    if (names_token && token && !has_attribute(name, "token=" + token->label)) return false;
    return has_attribute(name, "id=" + key.id);
}

Finding no_key_line(bool has_keys) {
    return has_keys ? key_line(State::error, "the library offers none of these keys",
                               "The remedies of the lines above say how to change this")
                    : key_line(State::error, "there is no private key",
                               "Use a card with a key and its certificate");
}

} // namespace

Text text_of_id(OsslScardCfg::CryptoIf crypto_if, const std::string& id) {
    const std::string shown = printable(id, longest_name);
    return crypto_if == OsslScardCfg::pkcs11 ? Text(shown) : Text().add_personal(shown);
}

std::vector<SurveyedKey> candidate_keys(const KeySurvey& survey) {
    std::vector<SurveyedKey> keys = survey.keys;
    // Without the login, private keys are hidden. Their certificates tell what the library will offer.
    if (!survey.is_complete)
        keys.insert(keys.end(), survey.lone_certificates.begin(), survey.lone_certificates.end());
    return keys;
}

Findings check_scan(Context& context) {
    if (context.survey) return {}; // the login has scanned the card
    try {
        context.survey = survey_keys(context.backend(), context.settings(), context.is_pin_required, Pin());
    } catch (const ErrorBase& error) {
        return {{State::error, Link::card, "scan", one_line(error.what()),
                 "Look up the message in docs/messages.md"}};
    }
    return {};
}

Findings check_keys(Context& context) {
    const KeySurvey& survey = context.survey.value();
    const std::vector<SurveyedKey> keys = candidate_keys(survey);
    Findings findings = judge_all(context, keys);
    if (!survey.is_complete)
        findings.push_back(
            key_line(State::note,
                     "without a login, most cards show only certificates; each line above is about "
                     "the key that should belong to one",
                     "Add --login to see the keys"));
    else
        for (const SurveyedKey& certificate : survey.lone_certificates)
            findings.push_back(key_line(
                State::note, describe(context, certificate).add(": a certificate without its key"), ""));
    if (!is_any_offered(keys) && (survey.is_complete || !keys.empty()))
        findings.push_back(no_key_line(!keys.empty()));
    return findings;
}

Findings check_key_id(Context& context) {
    const auto line = [](State state, const Text& finding, const Text& remedy) {
        return Findings{{state, Link::client, "key in effect", finding, remedy}};
    };
    const std::string name = context.settings().get_priv_key_name();
    const std::string& id = context.request.key_id;
    if (id.empty() && name.empty())
        return line(State::note,
                    "the setting priv_key_name is empty, so ossl_load() fails without a set_key()",
                    "Let the client call set_key() before notify_config_done(); --key ID checks an id");
    const std::vector<SurveyedKey> keys = candidate_keys(context.survey.value());
    const auto found = std::find_if(keys.begin(), keys.end(), [&](const SurveyedKey& key) {
        return id.empty() ? is_name_of(name, key, context.token) : key.id == id;
    });
    const Text wanted = id.empty() ? Text("the key of priv_key_name (").add_personal(name).add(")")
                                   : Text("the key ").add(text_of_id(context.crypto_if(), id));
    if (found == keys.end())
        return line(State::error, Text(wanted).add(" is not on the card"),
                    "Use an id of the lines of the check 'keys', exactly as it is written there");
    if (!found->is_offered)
        return line(State::error, Text(wanted).add(" is not offered"), "See its line of the check 'keys'");
    if (is_invalid(*found))
        return line(State::error, Text(wanted).add(" is offered" + warnings_of(*found)), remedy_of(*found));
    return line(State::ok, Text(wanted).add(" is offered"), "");
}

} // namespace Kes::tool
