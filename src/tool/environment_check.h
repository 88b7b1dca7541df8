#ifndef KES_TOOL_ENVIRONMENT_CHECK_H_
#define KES_TOOL_ENVIRONMENT_CHECK_H_

#include <string>
#include <vector>

#include "tool/environment.h"

namespace Kes::tool {

/// A mistake in the environment variables that override settings.
struct EnvironmentMistake {
    enum class Kind {
        name,  ///< a misspelt name: the variable has no effect
        value, ///< a value without meaning, or with another meaning than it seems to have
    };

    Kind kind;
    std::string variable; ///< the variable's name
    std::string finding;  ///< a sentence without full stop, which begins with the name
    std::string remedy;   ///< what to do
};

/// Finds misspelt names and values without meaning, in the order of the variables. Reads no files.
std::vector<EnvironmentMistake> check_environment(const Variables& variables);

/// The keys of the settings that an unknown key may mean, such as "crypto_if", as "a, b or c" if there are
/// several, or all keys if it resembles none; "" if there is a setting with this key.
std::string meant_settings(const std::string& key);

/// The same for the names of back-ends.
std::string meant_back_ends(const std::string& name);

/// The most similar of the names as most_similar() finds it, or all of them as "a, b or c" if none is.
std::string suggest(const std::string& text, const std::vector<std::string>& names, std::size_t most);

/// The text of the candidates that is most similar to the given one, regardless of upper and lower case.
/// @param most  how many letters may be added, left out or replaced
/// @return "" if none is similar enough
std::string most_similar(const std::string& text, const std::vector<std::string>& candidates,
                         std::size_t most);

} // namespace Kes::tool

#endif // KES_TOOL_ENVIRONMENT_CHECK_H_
