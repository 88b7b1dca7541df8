#ifndef KES_TOOL_DOCTOR_CHECKS_H_
#define KES_TOOL_DOCTOR_CHECKS_H_

#include <functional>
#include <span>
#include <vector>

#include "tool/doctor/context.h"
#include "tool/doctor/finding.h"

namespace Kes::tool {

using Findings = std::vector<Finding>;

/// A group of lines of the report.
struct Check {
    const char* name;
    Link link;                      ///< for a line that says that the check was skipped or has failed
    std::vector<const char*> needs; ///< checks that must have found no error; they come earlier
    Findings (*run)(Context& context);
};

/// All checks, in the order in which they run: from the client program to the card.
std::span<const Check> all_checks();

/// Runs the checks. A check that throws becomes a line with the text of the exception. A check whose needs
/// have failed becomes a line that says so.
/// @param report  receives each line as soon as its check has ended, because a PKCS#11 module may block or
///                end the process in a later one
/// @return all lines
Findings run_checks(std::span<const Check> checks, Context& context,
                    const std::function<void(const Finding&)>& report);

/// An error text of the library as one line: for each entry of OpenSSL's error queue, the line has the
/// library, the reason and the details, but neither the thread nor the place in OpenSSL's source.
std::string one_line(const std::string& error_text);

/// The end of a remedy for a setting that is missing: that the command env prints it. "" if the command knows
/// no value for this system.
std::string hint_of_command_env(const std::string& key);

/// The keys, and, without a login that the card requires, the certificates whose keys it hides.
std::vector<SurveyedKey> candidate_keys(const KeySurvey& survey);

/// The id of a key, as lines show it. Ids of PKCS#11 are numbers; those of CryptoAPI may be persons' names.
Text text_of_id(OsslScardCfg::CryptoIf crypto_if, const std::string& id);

// The checks. Each is in the file of its subject.
Findings check_settings(Context& context);
Findings check_variables(Context& context);
Findings check_backend(Context& context);
Findings check_openssl(Context& context);
Findings check_openssl_config(Context& context);
Findings check_libp11(Context& context);
Findings check_libcrypto(Context& context);
Findings check_engine_file(Context& context);
Findings check_engine(Context& context);
Findings check_soft_token(Context& context);
Findings check_module_file(Context& context);
Findings check_module(Context& context);
Findings check_card(Context& context);
Findings check_login(Context& context);
Findings check_scan(Context& context);
Findings check_keys(Context& context);
Findings check_key_id(Context& context);
Findings check_tls(Context& context);
Findings check_tls_versions(Context& context);
Findings check_log(Context& context);

} // namespace Kes::tool

#endif // KES_TOOL_DOCTOR_CHECKS_H_
