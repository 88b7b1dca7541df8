#ifndef KES_TESTS_SUPPORT_HANDLE_BALANCE_H_
#define KES_TESTS_SUPPORT_HANDLE_BALANCE_H_

#include "types.h"

namespace Kes::test {

/// The handles in the log of the CSP test card that were not created ("+k7") and released ("-k7") equally
/// often.
Lines unbalanced_handles(const Lines& calls);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_HANDLE_BALANCE_H_
