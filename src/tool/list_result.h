#ifndef KES_TOOL_LIST_RESULT_H_
#define KES_TOOL_LIST_RESULT_H_

#include <ostream>
#include <string>
#include <vector>

#include "tool/command.h"
#include "tool/key_survey.h"
#include "tool/text_output.h"

namespace Kes::tool {

/// What the command list shows.
struct ListResult {
    std::string backend;
    std::string source; ///< the PKCS#11 module, the CryptoAPI provider or the certificate store
    bool is_login_required = false;
    std::vector<TokenInfo> tokens;
    KeySurvey survey;
    std::string error; ///< why the scan failed; "" if it did not
};

/// The members of the JSON object.
Json to_json(const ListResult& result);

/// Prints the result for people. The error is not printed.
void print_text(std::ostream& out, const ListResult& result);

/// What the result does not show, and why. Empty if it shows everything.
std::vector<std::string> notes_of(const ListResult& result);

/// Why the library does not use a token.
constexpr const char* not_used_reason = "not used, because the library takes the first token";

} // namespace Kes::tool

#endif // KES_TOOL_LIST_RESULT_H_
