#ifndef KES_TOOL_KEY_VERDICT_H_
#define KES_TOOL_KEY_VERDICT_H_

#include <string>
#include <vector>

#include "base/cfg_reader.h"
#include "base/key_observer.h"
#include "tool/certificate_facts.h"

namespace Kes::tool {

/// A fact as text for people and as a code for programs, such as "no_certificate".
struct CodedText {
    std::string code;
    std::string text;
};

/// The verdict in words. The codes: offered, no_certificate, no_key_usage, wrong_key_usage,
/// wrong_extended_key_usage.
/// @param settings     with the filter that led to the verdict
/// @param certificate  null if there is none
CodedText describe_verdict(KeyVerdict verdict, const CfgReader& settings,
                           const CertificateFacts* certificate);

/// What may make a login with this certificate fail. The codes: expired, not_yet_valid, no_digital_signature,
/// no_client_authentication.
std::vector<CodedText> certificate_warnings(const CertificateFacts& certificate);

} // namespace Kes::tool

#endif // KES_TOOL_KEY_VERDICT_H_
