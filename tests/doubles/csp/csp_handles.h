#ifndef KES_TESTS_DOUBLES_CSP_CSP_HANDLES_H_
#define KES_TESTS_DOUBLES_CSP_CSP_HANDLES_H_

#include <map>
#include <string>
#include <vector>

#include "csp_call.h"
#include "utils/windows_api.h"

namespace Kes::test_card {

/// The object of a handle: a context ('p'), a key ('k') or a hash ('h').
struct Object {
    char kind;
    ULONG_PTR inner; ///< the software provider's own handle
    std::string container;
    std::string provider_name;        ///< of a context
    std::vector<std::string> to_list; ///< of a context: the containers not yet enumerated
    DWORD key_spec = 0;               ///< of a user key
};

/// All handles of this process. A handle is the number of the call that created it, so that each handle in
/// the log is unique. Not thread-safe.
class Handles {
public:
    ULONG_PTR add(Object object, Note& note);

    /// Null, with the last error set, if there is no such handle of that kind.
    Object* find(char kind, ULONG_PTR handle);

    /// The software provider's handle; 0 for 0 and for an invalid handle.
    ULONG_PTR inner(char kind, ULONG_PTR handle);

    void remove(char kind, ULONG_PTR handle, Note& note);

private:
    std::map<ULONG_PTR, Object> objects_;
};

Handles& handles();

} // namespace Kes::test_card

#endif // KES_TESTS_DOUBLES_CSP_CSP_HANDLES_H_
