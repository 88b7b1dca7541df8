#ifndef KES_TOOL_JSON_PARTS_H_
#define KES_TOOL_JSON_PARTS_H_

#include "tool/command.h"
#include "tool/key_verdict.h"
#include "tool/selected_key.h"

/// Parts of JSON objects that several commands print.
namespace Kes::tool {

Json certificate_json(const CertificateFacts& certificate);
Json key_json(const SelectedKey& key);

/// An array of objects.
Json coded_json(const std::vector<CodedText>& texts);

} // namespace Kes::tool

#endif // KES_TOOL_JSON_PARTS_H_
