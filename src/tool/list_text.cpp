#include <algorithm>

#include "tool/list_result.h"
#include "tool/printable.h"

namespace Kes::tool {
namespace {

constexpr std::size_t head_width = 10;
constexpr std::size_t key_indent = 4;
constexpr std::size_t key_width = 8;

std::string token_text(const TokenInfo& token) {
    std::string text = token.label.empty() ? "(no label)" : printable(token.label);
    text += " (" + printable(token.manufacturer) + " " + printable(token.model);
    if (!token.serial.empty()) text += ", serial " + printable(token.serial);
    return text + ") in " + printable(token.reader);
}

std::string state_text(const TokenInfo& token) {
    std::string text = token.is_login_required ? "login required" : "no login required";
    const auto add = [&](bool is_set, const char* words) {
        if (is_set) text += std::string(", ") + words;
    };
    add(!token.is_initialized, "not initialized");
    add(token.has_pin_pad, "reader has a PIN pad");
    add(token.is_pin_count_low, "a wrong PIN was entered");
    add(token.is_final_try, "one more wrong PIN locks the token");
    add(token.is_locked, "locked");
    add(token.must_pin_be_changed, "PIN must be changed");
    return text;
}

const char* source_label(const std::string& backend) {
    if (backend == "pkcs11") return "Module";
    return backend == "capi" ? "Provider" : "Store";
}

void print_head(std::ostream& out, const ListResult& result) {
    print_field(out, 0, head_width, "Back-end", result.backend);
    print_field(out, 0, head_width, source_label(result.backend), printable(result.source));
    for (const TokenInfo& token : result.tokens) {
        print_field(out, 0, head_width, "Token", token_text(token));
        print_field(out, 0, head_width, "", token.is_used ? state_text(token) : not_used_reason);
    }
}

std::string joined(const std::vector<std::string>& names, const char* separator) {
    std::string text;
    for (const std::string& name : names)
        text += (text.empty() ? "" : separator) + name;
    return text;
}

std::string key_text(const CertificateFacts& certificate) {
    if (certificate.key_type.empty()) return "unknown type";
    const std::string size = std::to_string(certificate.key_bits) + " bits";
    return certificate.key_type + ", " + (certificate.curve.empty() ? size : certificate.curve + ", " + size);
}

std::string validity_text(const CertificateFacts& certificate) {
    const std::string left = certificate.is_expired ? "expired" : days_left_text(certificate);
    return certificate.not_before.substr(0, 10) + " to " + certificate.not_after.substr(0, 10) + " (" + left +
           ")";
}

void print_certificate(std::ostream& out, const CertificateFacts& certificate) {
    const auto print = [&](const char* label, const std::string& text) {
        print_field(out, key_indent, key_width, label, printable(text));
    };
    print("key", key_text(certificate));
    print("subject", certificate.subject);
    print("issuer", certificate.issuer);
    print("serial", certificate.serial);
    print("valid", validity_text(certificate));
    const std::string usages = joined(certificate.key_usages, ", ");
    const std::string extended = joined(certificate.extended_key_usages, ", ");
    print("usage", usages.empty() ? "no key usage" : usages);
    print("extended", extended.empty() ? "no extended key usage" : extended);
}

/// @param title  what precedes the name
void print_key(std::ostream& out, const SurveyedKey& key, const std::string& title) {
    out << '\n';
    print_field(out, 0, 0, title, printable(key.name));
    print_field(out, key_indent, key_width, "verdict", printable(key.verdict.text));
    for (const CodedText& warning : key.warnings)
        print_field(out, key_indent, key_width, "warning", printable(warning.text));
    print_field(out, key_indent, key_width, "set_key",
                "type " + std::to_string(key.key_type) + ", id \"" + printable(key.id) + "\"");
    if (key.certificate) print_certificate(out, *key.certificate);
}

std::string counted(std::size_t count, const char* word) {
    return std::to_string(count) + " " + word + (count == 1 ? "" : "s");
}

} // namespace

std::vector<std::string> notes_of(const ListResult& result) {
    std::vector<std::string> notes;
    const bool has_pin_pad =
        std::any_of(result.tokens.begin(), result.tokens.end(),
                    [](const TokenInfo& token) { return token.is_used && token.has_pin_pad; });
    if (!result.survey.is_complete)
        notes.emplace_back("private keys are not visible without the PIN; certificates are shown");
    if (has_pin_pad)
        notes.emplace_back("the library does not log in at a reader with a PIN pad; private keys may not be "
                           "visible");
    return notes;
}

void print_text(std::ostream& out, const ListResult& result) {
    print_head(out, result);
    for (const std::string& note : notes_of(result))
        print_field(out, 0, head_width, "Note", note);
    if (!result.error.empty()) return;
    const auto& keys = result.survey.keys;
    const auto offered = static_cast<std::size_t>(
        std::count_if(keys.begin(), keys.end(), [](const SurveyedKey& key) { return key.is_offered; }));
    print_field(out, 0, head_width, "Keys",
                counted(keys.size(), "key") + ", " + std::to_string(offered) + " offered");
    for (const SurveyedKey& key : keys)
        print_key(out, key, key.number ? "Key " + std::to_string(*key.number) : "Key -");
    for (const SurveyedKey& certificate : result.survey.lone_certificates)
        print_key(out, certificate, "Certificate");
}

} // namespace Kes::tool
