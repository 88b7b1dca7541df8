#ifndef KES_TOOL_SETTING_OPTIONS_H_
#define KES_TOOL_SETTING_OPTIONS_H_

#include <map>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Kes::tool {

/// The options that change the library's settings for one run. They have the effect of the environment
/// variable of the setting, so that they follow the same rules, and take precedence over it.
class SettingOptions {
public:
    /// Adds --backend, --module, --engine, --provider, --store and --set.
    void add_to(CLI::App& command);

    /// Sets the environment variables of this process. Call it once, before the library reads its settings.
    /// @throws CLI::ValidationError for an argument of --set without "=", with an unknown key or back-end
    void apply();

    /// Whether the command line gives the setting with this environment key, such as "crypto_if".
    bool is_given(const std::string& key) const { return values.contains(key); }

private:
    std::map<std::string, std::string> values; // by environment key
    std::vector<std::string> assignments;      // of --set
};

} // namespace Kes::tool

#endif // KES_TOOL_SETTING_OPTIONS_H_
