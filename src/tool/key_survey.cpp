#include "tool/key_survey.h"

#include <algorithm>
#include <utility>

#include "base/capi_key_type.h"
#include "base/key_filter.h"
#include "base/key_observer.h"

namespace Kes::tool {
namespace {

/// Collects what a scanner finds.
class Collector final : public KeyObserver {
public:
    Collector(CfgReader settings_in, std::time_t now_in, KeySurvey& survey_in)
        : settings(settings_in), now(now_in), survey(survey_in) {}

    void found_key(const KeyFinding& finding) override {
        SurveyedKey key = make_key(finding);
        if (key.is_offered) {
            if (is_shadowed(key))
                key.warnings.push_back({"shadowed", "another key with this id comes first; only its number "
                                                    "selects this key"});
            key.number = offered++;
        }
        survey.keys.push_back(std::move(key));
    }

    void found_lone_certificate(const KeyFinding& finding) override {
        SurveyedKey key = make_key(finding);
        key.verdict = describe_lone_certificate(key.verdict);
        survey.lone_certificates.push_back(std::move(key));
    }

    void failed_container(const std::string& container, std::uint32_t key_type, const char* reason) override {
        SurveyedKey key;
        key.name = key_type == 0 ? container : container + " (" + capi_key_type_name(key_type) + ")";
        key.id = container;
        key.key_type = key_type;
        key.verdict = {"unreadable_container",
                       std::string("not offered: the container cannot be read: ") + reason};
        survey.keys.push_back(std::move(key));
    }

private:
    /// @param verdict  the one that the key would get
    CodedText describe_lone_certificate(CodedText verdict) const {
        if (survey.is_complete)
            return {"no_private_key", "not offered: no private key on the token has its id"};
        verdict.text.insert(verdict.text.find("offered"), "be ");
        verdict.text.insert(0, "its key would ");
        return verdict;
    }

    SurveyedKey make_key(const KeyFinding& finding) const {
        SurveyedKey key;
        key.name = finding.record.display_name;
        key.id = finding.record.cluster_name;
        key.key_type = finding.record.key_type;
        key.is_offered = finding.verdict == KeyVerdict::offered;
        if (finding.certificate != nullptr && finding.key_usage != nullptr) {
            key.certificate = read_facts(finding.certificate, *finding.key_usage, now);
            key.warnings = certificate_warnings(*key.certificate);
        }
        key.verdict =
            describe_verdict(finding.verdict, settings, key.certificate ? &*key.certificate : nullptr);
        return key;
    }

    bool is_shadowed(const SurveyedKey& key) const {
        return std::any_of(survey.keys.begin(), survey.keys.end(), [&](const SurveyedKey& earlier) {
            return earlier.is_offered && earlier.id == key.id && earlier.key_type == key.key_type;
        });
    }

    const CfgReader settings;
    const std::time_t now;
    KeySurvey& survey;
    std::size_t offered = 0;
};

} // namespace

KeySurvey survey_keys(KeyBackend& backend, const CfgReader& settings, bool is_login_required, const Pin& pin,
                      std::time_t now) {
    KeySurvey survey;
    survey.is_complete = !is_login_required || !pin.is_empty();
    Collector collector(settings, now, survey);
    std::unique_ptr<PkoIdScanner> scanner = backend.create_scanner(settings, create_key_filter(settings));
    if (scanner) {
        scanner->set_observer(&collector);
        if (!survey.is_complete) scanner->skip_login();
    }
    PkoIdList list;
    list.register_scanner(std::move(scanner));
    list.scan(pin);
    return survey;
}

} // namespace Kes::tool
