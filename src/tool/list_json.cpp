#include <nlohmann/json.hpp>

#include "tool/json_parts.h"
#include "tool/list_result.h"

namespace Kes::tool {
namespace {

Json token_json(const TokenInfo& token) {
    Json json{{"label", token.label},
              {"reader", token.reader},
              {"manufacturer", token.manufacturer},
              {"model", token.model},
              {"serial", token.serial},
              {"used", token.is_used},
              {"initialized", token.is_initialized},
              {"login_required", token.is_login_required},
              {"pin_pad", token.has_pin_pad},
              {"pin_set", token.is_pin_set},
              {"pin_count_low", token.is_pin_count_low},
              {"final_try", token.is_final_try},
              {"locked", token.is_locked},
              {"pin_must_be_changed", token.must_pin_be_changed}};
    if (!token.is_used) json["reason"] = not_used_reason;
    return json;
}

Json surveyed_json(const SurveyedKey& key) {
    Json json{{"name", key.name}, {"id", key.id}, {"key_type", key.key_type}};
    if (key.number) json["number"] = *key.number;
    json["offered"] = key.is_offered;
    json["verdict"] = coded_json({key.verdict})[0];
    json["warnings"] = coded_json(key.warnings);
    if (key.certificate) json["certificate"] = certificate_json(*key.certificate);
    return json;
}

template <typename Elements, typename Convert>
Json array_of(const Elements& elements, Convert convert) {
    Json array = Json::array();
    for (const auto& element : elements)
        array.push_back(convert(element));
    return array;
}

} // namespace

Json to_json(const ListResult& result) {
    Json json{{"backend", result.backend},
              {"source", result.source},
              {"login_required", result.is_login_required},
              {"complete", result.error.empty() && result.survey.is_complete},
              {"tokens", array_of(result.tokens, token_json)},
              {"keys", array_of(result.survey.keys, surveyed_json)},
              {"certificates_without_key", array_of(result.survey.lone_certificates, surveyed_json)},
              {"notes", notes_of(result)}};
    if (!result.error.empty()) json["error"] = result.error;
    return json;
}

} // namespace Kes::tool
