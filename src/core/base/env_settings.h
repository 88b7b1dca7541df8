#ifndef KES_BASE_ENV_SETTINGS_H_
#define KES_BASE_ENV_SETTINGS_H_

#include <string>
#include <vector>

/// The settings that environment variables override, for programs that explain them.
namespace Kes {

/// Begins the names of all variables.
constexpr const char* env_prefix = "ossl_scard_cfg_";

/// How the library reads the value of a variable.
enum class EnvValue { back_end, number, text };

struct EnvKey {
    std::string key;     ///< the name of the variable after the prefix
    std::string setting; ///< the name of the setting, which differs from some keys
    EnvValue value;
};

/// All keys, in the order in which the library reads them.
std::vector<EnvKey> list_env_keys();

struct EnvNumber {
    unsigned int value; ///< as the library reads it
    bool is_whole;      ///< the text is a number from 0 to 4294967295 and nothing else
};

EnvNumber parse_env_number(const std::string& text);

/// The names of all back-ends, as the variable has to spell them.
std::vector<std::string> list_back_ends();

} // namespace Kes

#endif // KES_BASE_ENV_SETTINGS_H_
