#include "tool/json_parts.h"

#include <nlohmann/json.hpp>

namespace Kes::tool {

Json certificate_json(const CertificateFacts& certificate) {
    return {{"subject", certificate.subject},
            {"issuer", certificate.issuer},
            {"serial", certificate.serial},
            {"not_before", certificate.not_before},
            {"not_after", certificate.not_after},
            {"days_left", certificate.days_left},
            {"key_type", certificate.key_type},
            {"key_bits", certificate.key_bits},
            {"curve", certificate.curve},
            {"key_usages", certificate.key_usages},
            {"extended_key_usages", certificate.extended_key_usages}};
}

Json key_json(const SelectedKey& key) {
    return {{"name", key.name()}, {"id", key.id()}, {"type", key.type()}};
}

Json coded_json(const std::vector<CodedText>& texts) {
    Json array = Json::array();
    for (const CodedText& text : texts)
        array.push_back({{"code", text.code}, {"text", text.text}});
    return array;
}

} // namespace Kes::tool
