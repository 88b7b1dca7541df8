#include "tool/doctor/checks.h"

#include <algorithm>
#include <array>
#include <exception>
#include <set>
#include <string>

namespace Kes::tool {
namespace {

const std::array checks_in_order{
    Check{"settings", Link::client, {}, check_settings},
    Check{"environment", Link::client, {}, check_variables},
    Check{"back-end", Link::client, {}, check_backend},
    Check{"TLS versions", Link::client, {"back-end"}, check_tls_versions},
    Check{"log file", Link::client, {}, check_log},
    Check{"OpenSSL", Link::library, {}, check_openssl},
    Check{"openssl.cnf", Link::library, {}, check_openssl_config},
    Check{"libp11", Link::library, {"back-end"}, check_libp11},
    Check{"engine file", Link::engine, {"back-end"}, check_engine_file},
    Check{"engine", Link::engine, {"back-end", "OpenSSL", "openssl.cnf", "engine file"}, check_engine},
    Check{"module file", Link::module, {"back-end"}, check_module_file},
    Check{"SoftHSM2", Link::module, {"back-end"}, check_soft_token},
    Check{"module", Link::module, {"back-end", "libp11", "module file", "SoftHSM2"}, check_module},
    Check{"libcrypto", Link::library, {}, check_libcrypto},
    Check{"card", Link::card, {"back-end", "libp11", "module"}, check_card},
    Check{"login", Link::card, {"card"}, check_login},
    Check{"scan", Link::card, {"card", "login"}, check_scan},
    Check{"keys", Link::card, {"scan"}, check_keys},
    Check{"key in effect", Link::client, {"scan"}, check_key_id},
    Check{"TLS", Link::card, {"scan"}, check_tls},
};

Findings run_guarded(const Check& check, Context& context) {
    const auto broken = [&check](const std::string& text) {
        return Findings{{State::error, check.link, check.name, "this check failed: " + one_line(text),
                         "Report this line to the developers of marvo if you cannot explain it"}};
    };
    try {
        return check.run(context);
    } catch (const std::exception& error) {
        return broken(error.what());
    } catch (...) {
        return broken("unknown exception");
    }
}

/// The first need that has failed; null if there is none.
const char* failed_need(const Check& check, const std::set<std::string>& failed) {
    const auto found = std::find_if(check.needs.begin(), check.needs.end(),
                                    [&failed](const char* need) { return failed.contains(need); });
    return found == check.needs.end() ? nullptr : *found;
}

bool is_failure(const Finding& finding) {
    return finding.state == State::error || finding.state == State::skipped;
}

} // namespace

std::span<const Check> all_checks() { return checks_in_order; }

Findings run_checks(std::span<const Check> checks, Context& context,
                    const std::function<void(const Finding&)>& report) {
    Findings all;
    std::set<std::string> failed;
    for (const Check& check : checks) {
        const char* need = failed_need(check, failed);
        Findings findings =
            need == nullptr ? run_guarded(check, context)
                            : Findings{{State::skipped, check.link, check.name,
                                        std::string("not checked because of the check '") + need + "'", ""}};
        if (std::any_of(findings.begin(), findings.end(), is_failure)) failed.insert(check.name);
        for (const Finding& finding : findings) {
            report(finding);
            all.push_back(finding);
        }
    }
    // At the end, because a check may find a name that is in an earlier line, too. Long names come first,
    // because a short one may be a part of them.
    std::stable_sort(
        context.names.begin(), context.names.end(),
        [](const std::string& first, const std::string& second) { return first.size() > second.size(); });
    for (Finding& finding : all) {
        finding.finding.mark(context.names);
        finding.remedy.mark(context.names);
    }
    return all;
}

} // namespace Kes::tool
