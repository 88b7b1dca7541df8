#include "handle_balance.h"

#include <map>
#include <sstream>

namespace Kes::test {

Lines unbalanced_handles(const Lines& calls) {
    std::map<std::string, int> balance;
    for (const std::string& line : calls) {
        std::istringstream words(line);
        for (std::string word; words >> word;) {
            if (word[0] == '+') ++balance[word.substr(1)];
            if (word[0] == '-') --balance[word.substr(1)];
        }
    }
    Lines unbalanced;
    for (const auto& [handle, count] : balance)
        if (count != 0) unbalanced.push_back(handle);
    return unbalanced;
}

} // namespace Kes::test
