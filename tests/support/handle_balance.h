#ifndef KES_TESTS_SUPPORT_HANDLE_BALANCE_H_
#define KES_TESTS_SUPPORT_HANDLE_BALANCE_H_

#include "types.h"

namespace Kes::test {

/// The handles that the log of the test card with a provider shows to be made ("+k7") more often than
/// released ("-k7"), or the other way round.
Lines unbalanced_handles(const Lines& calls);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_HANDLE_BALANCE_H_
