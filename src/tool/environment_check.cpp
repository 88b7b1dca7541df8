#include "tool/environment_check.h"

#include <algorithm>
#include <numeric>
#include <optional>

#include <openssl/objects.h>

#include "base/capi_key_type.h"
#include "base/env_settings.h"
#include "tool/printable.h"
#include "utils/cert_key_usage.h"
#include "utils/logger.h"

namespace Kes::tool {
namespace {

using Kind = EnvironmentMistake::Kind;

std::string lower_case(std::string text) {
    for (char& letter : text)
        if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
    return text;
}

/// How many letters must be added, left out or replaced to change one text into the other.
std::size_t distance(const std::string& first, const std::string& second) {
    std::vector<std::size_t> row(second.size() + 1);
    std::iota(row.begin(), row.end(), 0U);
    for (const char letter : first) {
        std::size_t diagonal = row[0]++;
        for (std::size_t j = 0; j < second.size(); ++j) {
            const std::size_t replaced = diagonal + (letter == second[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({row[j] + 1, row[j + 1] + 1, replaced});
        }
    }
    return row.back();
}

/// Whether the name begins with the prefix, in any case.
bool has_prefix(const std::string& name) { return lower_case(name).starts_with(env_prefix); }

/// Whether the words are a whole part of the key, such as "module" of "pkcs11_module_dll".
bool has_part(const std::string& key, const std::string& words) {
    return ('_' + key + '_').find('_' + words + '_') != std::string::npos;
}

/// How many changes still lead to the key that was meant. In a short name, few changes lead to any key: two
/// make "logfile" of "libfile", and then the log would overwrite a library.
std::size_t most_changes(const std::string& key) { return key.size() < 9 ? 1 : key.size() / 3; }

/// The keys that an unknown key in lower case means.
std::vector<std::string> find_meant_keys(const std::string& unknown, const std::vector<EnvKey>& keys) {
    std::vector<std::string> names;
    std::vector<std::string> with_part;
    for (const EnvKey& key : keys) {
        if (unknown == key.setting) return {key.key};
        names.push_back(key.key);
        if (has_part(key.key, unknown)) with_part.push_back(key.key);
    }
    const std::string similar = most_similar(unknown, names, most_changes(unknown));
    return similar.empty() ? with_part : std::vector<std::string>{similar};
}

/// The keys that a misspelt variable means; none if it resembles no variable.
std::vector<std::string> find_meant(const std::string& name, const std::vector<EnvKey>& keys) {
    const std::size_t prefix = std::string(env_prefix).size();
    if (has_prefix(name)) return find_meant_keys(lower_case(name).substr(prefix), keys);
    std::vector<std::string> names;
    names.reserve(keys.size());
    for (const EnvKey& key : keys)
        names.push_back(env_prefix + key.key);
    const std::string similar = most_similar(name, names, 3);
    if (similar.empty()) return {};
    return {similar.substr(prefix)};
}

std::string listed(const std::vector<std::string>& names) {
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i)
        text += (i == 0 ? "" : i + 1 == names.size() ? " or " : ", ") + names[i];
    return text;
}

std::optional<EnvironmentMistake> check_name(const std::string& name, const std::vector<EnvKey>& keys) {
    std::vector<std::string> meant = find_meant(name, keys);
    if (meant.empty() && !has_prefix(name)) return std::nullopt; // another program's variable
    for (std::string& key : meant)
        key.insert(0, env_prefix);
    return EnvironmentMistake{Kind::name, name, printable(name, 80) + " is not a setting and has no effect",
                              meant.empty() ? "remove it" : "rename it to " + listed(meant)};
}

/// A mistake in a value, without the variable's name and value.
struct Problem {
    std::string text;
    std::string remedy;
};

std::optional<Problem> check_back_end(const std::string& value) {
    const std::string meant = meant_back_ends(value);
    if (meant.empty()) return std::nullopt;
    return Problem{"names no back-end", "set it to " + meant};
}

/// Whether the mask has a bit to which the function gives no name.
template <typename NameOfMask>
bool has_unknown_bit(unsigned int mask, NameOfMask name_of_mask) {
    const std::string no_name = name_of_mask(0);
    for (unsigned int bit = 1; bit != 0; bit <<= 1U) {
        const std::string name = name_of_mask(mask & bit);
        if ((mask & bit) != 0 && (name.empty() || name == no_name)) return true;
    }
    return false;
}

bool ends_with(const std::string& text, const std::string& end) { return text.ends_with(end); }

std::optional<Problem> check_meaning(const std::string& key, unsigned int number) {
    if (key == "capi_key_type" && number != capi_key_type_key_exchange && number != capi_key_type_signature)
        return Problem{"is no type of key", "set it to 1 (key exchange) or 2 (signature)"};
    if (ends_with(key, "_filter_type") && filter_type_name(static_cast<FilterType>(number)).empty())
        return Problem{"is no type of filter and has the effect of 1",
                       "set it to 0 (all), 1 (exact) or 2 (exact_none)"};
    if (key == "key_usage_filter" && has_unknown_bit(number, key_usage_mask_name))
        return Problem{"contains a bit that is no key usage", "set it to a sum of key usages, such as 128"};
    if (key == "logfile_severity" && has_unknown_bit(number, severity_mask_name))
        return Problem{"contains a bit that is no severity", "set it to a sum of severities, such as 63"};
    return std::nullopt;
}

std::optional<Problem> check_number(const std::string& key, const std::string& value) {
    const EnvNumber number = parse_env_number(value);
    if (number.is_whole) return check_meaning(key, number.value);
    return Problem{"is not a whole number from 0 to 4294967295 and counts as " + std::to_string(number.value),
                   "set it to a number"};
}

/// The extended key usage must be spelt like those that the library reads from certificates.
std::optional<Problem> check_ext_key_usage(const std::string& value) {
    if (value.find_first_not_of("0123456789.") == std::string::npos) return std::nullopt;
    const int known = ::OBJ_txt2nid(value.c_str());
    std::string number(80, '\0');
    const int length = known == NID_undef ? 0
                                          : ::OBJ_obj2txt(number.data(), static_cast<int>(number.size()),
                                                          ::OBJ_nid2obj(known), 1);
    number.resize(static_cast<std::size_t>(std::max(length, 0)));
    return Problem{"is not an object identifier in dotted form",
                   number.empty() ? "set it to one, such as 1.3.6.1.5.5.7.3.2 for clientAuth"
                                  : "set it to " + number};
}

std::optional<Problem> check_text(const std::string& key, const std::string& value) {
    if (value.size() > 1 && value.front() == '"' && value.back() == '"')
        return Problem{"begins and ends with a quotation mark, which is a part of the value",
                       "remove the quotation marks"};
    return key == "ext_key_usage_filter" ? check_ext_key_usage(value) : std::nullopt;
}

std::optional<EnvironmentMistake> check_value(const EnvKey& key, const std::string& name,
                                              const std::string& value) {
    if (value.empty()) return std::nullopt; // has no effect, and says so
    const std::optional<Problem> problem = key.value == EnvValue::back_end ? check_back_end(value)
                                           : key.value == EnvValue::number ? check_number(key.key, value)
                                                                           : check_text(key.key, value);
    if (!problem) return std::nullopt;
    return EnvironmentMistake{Kind::value, name, name + "=" + printable(value, 80) + " " + problem->text,
                              problem->remedy};
}

} // namespace

std::string meant_settings(const std::string& key) {
    const std::vector<EnvKey> keys = list_env_keys();
    const auto is_known = [&key](const EnvKey& known) {
        return is_same_variable(env_prefix + key, env_prefix + known.key);
    };
    if (std::any_of(keys.begin(), keys.end(), is_known)) return "";
    std::vector<std::string> meant = find_meant(has_prefix(key) ? key : env_prefix + key, keys);
    if (meant.empty())
        for (const EnvKey& known : keys)
            meant.push_back(known.key);
    return listed(meant);
}

std::string meant_back_ends(const std::string& name) {
    const std::vector<std::string> names = list_back_ends();
    if (std::find(names.begin(), names.end(), name) != names.end()) return "";
    return suggest(name, names, 3);
}

std::string suggest(const std::string& text, const std::vector<std::string>& names, std::size_t most) {
    const std::string meant = most_similar(text, names, most);
    return meant.empty() ? listed(names) : meant;
}

std::string most_similar(const std::string& text, const std::vector<std::string>& candidates,
                         std::size_t most) {
    std::string best;
    for (const std::string& candidate : candidates) {
        const std::size_t changes = distance(lower_case(text), lower_case(candidate));
        if (changes > most) continue;
        best = candidate;
        if (changes == 0) break;
        most = changes - 1; // of equally similar ones, the first counts
    }
    return best;
}

std::vector<EnvironmentMistake> check_environment(const Variables& variables) {
    const std::vector<EnvKey> keys = list_env_keys();
    std::vector<EnvironmentMistake> mistakes;
    for (const auto& [name, value] : variables) {
        const auto key = std::find_if(keys.begin(), keys.end(), [&variable = name](const EnvKey& known) {
            return is_same_variable(variable, env_prefix + known.key);
        });
        const auto mistake = key == keys.end() ? check_name(name, keys) : check_value(*key, name, value);
        if (mistake) mistakes.push_back(*mistake);
    }
    return mistakes;
}

} // namespace Kes::tool
