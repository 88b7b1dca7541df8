#ifndef KES_TESTS_DOUBLES_CSP_CSP_HANDLES_H_
#define KES_TESTS_DOUBLES_CSP_CSP_HANDLES_H_

#include <map>
#include <string>
#include <vector>

#include "csp_call.h"
#include "utils/windows_api.h"

namespace Kes::test_card {

/// What stands behind a handle that we gave: a context ('p'), a key ('k') or a hash ('h').
struct Object {
    char kind;
    ULONG_PTR inner; ///< the software provider's own handle
    std::string container;
    std::string provider_name;        ///< of a context
    std::vector<std::string> to_list; ///< of a context: what its enumeration has still to name
    DWORD key_spec = 0;               ///< of a user key
};

/// All of this process. A handle is the number of the call that made it, so that the log can tell one from
/// the other. Providers are used by one thread at a time here.
class Handles {
public:
    ULONG_PTR add(Object object, Note& note);

    /// Null, with the last error set, for what is no handle of that kind.
    Object* find(char kind, ULONG_PTR handle);

    /// The software provider's handle; 0 for 0 and for what is none.
    ULONG_PTR inner(char kind, ULONG_PTR handle);

    void remove(char kind, ULONG_PTR handle, Note& note);

private:
    std::map<ULONG_PTR, Object> objects_;
};

Handles& handles();

} // namespace Kes::test_card

#endif // KES_TESTS_DOUBLES_CSP_CSP_HANDLES_H_
