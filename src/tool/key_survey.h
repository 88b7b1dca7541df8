#ifndef KES_TOOL_KEY_SURVEY_H_
#define KES_TOOL_KEY_SURVEY_H_

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "base/key_backend.h"
#include "tool/certificate_facts.h"
#include "tool/key_verdict.h"

namespace Kes::tool {

/// A private key that the library's scanner found, offered or not; or a certificate whose private key the
/// scanner did not find.
struct SurveyedKey {
    std::string name;           ///< as get_key_name() returns it
    std::string id;             ///< the key id for set_key()
    std::uint32_t key_type = 0; ///< the key type for set_key()
    bool is_offered = false;
    std::optional<std::size_t> number; ///< the number for set_key(), if the key is offered

    /// Why the key is offered or not: a code of describe_verdict(), or "unreadable_container".
    CodedText verdict;

    /// What may make a login fail although the library offers the key: codes of certificate_warnings(), and
    /// "shadowed" if another key has the same id and comes first.
    std::vector<CodedText> warnings;
    std::optional<CertificateFacts> certificate;
};

/// What a scan of the library found.
struct KeySurvey {
    bool is_complete = true;                    ///< false without a login that the token requires
    std::vector<SurveyedKey> keys;              ///< in the order of the scan
    std::vector<SurveyedKey> lone_certificates; ///< is_offered tells whether a key would be offered
};

/// Scans like discover_keys() of the library.
/// @param backend            after read_card()
/// @param is_login_required  the result of read_card()
/// @param pin                if it is empty, the scan finds what is visible without the required login
/// @throws ErrorBase the errors of the scanner
KeySurvey survey_keys(KeyBackend& backend, const CfgReader& settings, bool is_login_required, const Pin& pin,
                      std::time_t now = std::time(nullptr));

} // namespace Kes::tool

#endif // KES_TOOL_KEY_SURVEY_H_
