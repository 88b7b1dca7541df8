#include <memory>
#include <openssl/conf.h>
#include <openssl/crypto.h>
#include <string>

#include "base/ossl_engine.h"
#include "tool/doctor/checks.h"
#include "tool/doctor/loaded_files.h"
#include "utils/error.h"
#include "utils/error_queue_mark.h"
#include "utils/ossl_ptr.h"

namespace Kes::tool {
namespace {

/// Gets OpenSSL's dynamic engine as every engine of the library does, and loads nothing.
struct DynamicEngine : OsslEngine {
    DynamicEngine() : OsslEngine(false, false) {}
};

struct FreeText {
    void operator()(char* text) const noexcept { ::OPENSSL_free(text); }
};

using ConfPtr = std::unique_ptr<CONF, FreeWith<&::NCONF_free>>;

/// The configuration file of OpenSSL; null if it does not exist or cannot be read.
ConfPtr read_config(const std::string& file) {
    const ErrorQueueMark mark;
    ConfPtr conf(::NCONF_new(nullptr));
    if (!conf || ::NCONF_load(conf.get(), file.c_str(), nullptr) != 1) return nullptr;
    return conf;
}

std::string value(const CONF& conf, const std::string& section, const std::string& name) {
    const ErrorQueueMark mark;
    const char* text = ::NCONF_get_string(&conf, section.c_str(), name.c_str());
    return text == nullptr ? "" : text;
}

Finding describe_engine(const CONF& conf, const std::string& file, const std::string& name,
                        const std::string& section) {
    std::string id = value(conf, section, "engine_id");
    if (id.empty()) id = name;
    const std::string text = file + " loads the engine '" + id + "'";
    if (id == "pkcs11" || id == "capi")
        return {State::error, Link::library, "openssl.cnf",
                text + ", and then OpenSSL refuses to load it again for the library",
                "Remove its section, or give the client another file by the variable OPENSSL_CONF"};
    if (!value(conf, section, "default_algorithms").empty())
        return {State::warning, Link::library, "openssl.cnf",
                text + " and makes it the default for algorithms",
                "If a login fails, try it without the section of this engine"};
    return {State::note, Link::library, "openssl.cnf", text, ""};
}

Findings describe_engines(const CONF& conf, const std::string& file) {
    Findings findings;
    const std::string start = value(conf, "default", "openssl_conf");
    const std::string engines = start.empty() ? "" : value(conf, start, "engines");
    if (engines.empty()) return findings;
    STACK_OF(CONF_VALUE)* entries = ::NCONF_get_section(&conf, engines.c_str());
    for (int i = 0; i < sk_CONF_VALUE_num(entries); ++i) {
        const CONF_VALUE* entry = sk_CONF_VALUE_value(entries, i);
        findings.push_back(describe_engine(conf, file, entry->name, entry->value));
    }
    return findings;
}

} // namespace

Findings check_openssl(Context&) {
    const std::string version =
        std::string(::OpenSSL_version(OPENSSL_VERSION_STRING)) + " in " + libcrypto_in_use();
    try {
        const DynamicEngine engine;
    } catch (const Error& error) {
        return {{State::error, Link::library, "OpenSSL", version + ": " + error.what(),
                 "Use an OpenSSL 3 that was built with engines"}};
    }
    return {{State::ok, Link::library, "OpenSSL", "version " + version + ", with engines", ""}};
}

Findings check_openssl_config(Context&) {
    const std::unique_ptr<char, FreeText> name(::CONF_get1_default_config_file());
    const std::string file = name ? name.get() : "";
    const ConfPtr conf = read_config(file);
    if (!conf)
        return {{State::note, Link::library, "openssl.cnf", file + " does not exist or cannot be read", ""}};
    Findings findings = describe_engines(*conf, file);
    if (findings.empty())
        findings.push_back({State::ok, Link::library, "openssl.cnf", file + " loads no engine", ""});
    return findings;
}

} // namespace Kes::tool
