#ifndef KES_TOOL_DOCTOR_CONTEXT_H_
#define KES_TOOL_DOCTOR_CONTEXT_H_

#include <optional>
#include <string>
#include <vector>

#include "base/cfg_reader.h"
#include "base/ossl_scard_cfg_imp.h"
#include "manager/key_backends.h"
#include "tool/key_survey.h"

namespace Kes::tool {

class PinOptions;
class SettingOptions;

/// What the user asked for.
struct DoctorRequest {
    const SettingOptions& settings;
    const PinOptions& pin;
    bool is_login_wanted; ///< without it, no check logs in
    std::string key_id;   ///< the key that the client will use, as for set_key(); empty if it is not known
};

/// What the checks share. A check may use what earlier checks have left here.
class Context {
public:
    /// Reads the settings as the library does.
    explicit Context(DoctorRequest request_in);

    CfgReader settings() const { return CfgReader(cfg); }
    OsslScardCfg::CryptoIf crypto_if() const { return cfg.get_crypto_if(); }
    KeyBackend& backend() const { return backends.select(cfg.get_crypto_if()); }

    /// The path of the engine that the back-end in use loads.
    std::string engine_path() const;

    /// The settings in effect as text, one in a line. @param buffer  its size limits the text
    const char* dump_settings(std::string& buffer) const {
        return cfg.dump_settings(buffer.data(), buffer.size());
    }

    const DoctorRequest request;
    std::vector<std::string> names; ///< personal data that is known so far

    // From the checks of the card and its keys.
    bool is_pin_required = false;
    std::optional<TokenInfo> token;  ///< the token in use, if the back-end knows tokens
    std::optional<KeySurvey> survey; ///< after a login, or after the check of the keys

private:
    OsslScardCfgImp cfg;
    const KeyBackends backends;
};

} // namespace Kes::tool

#endif // KES_TOOL_DOCTOR_CONTEXT_H_
