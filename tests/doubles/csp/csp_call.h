#ifndef KES_TESTS_DOUBLES_CSP_CSP_CALL_H_
#define KES_TESTS_DOUBLES_CSP_CSP_CALL_H_

#include <functional>
#include <string>

#include "utils/windows_api.h"

namespace Kes::test_card {

/// Additions to a call's line in the log: " +k7" for a handle that it created, " -k7" for one that it closed.
using Note = std::string;

/// Performs, logs and optionally fails one call of the provider.
///
/// The call is logged as one line in the card's file "calls": "sign@Login", then the note, then
/// " !0x80090016" if it failed.
///
/// The call fails if the card's file "faults" contains a line "<which>=<code>" for it. <which> is the point,
/// point@container, or the number of the call's line in the log, counted from 1. The code is decimal, or
/// hexadecimal with "0x". The file is read again in each call. The body of a call that is to fail does not
/// run, except for a release: a handle whose release fails is closed nevertheless.
///
/// Without the card every call fails with SCARD_W_REMOVED_CARD, except for the opening of a context, which
/// has a different error.
///
/// @param point      the operation, such as "sign"
/// @param container  the container; "" if there is none
/// @param body       returns whether it succeeded, and sets the last error if not
BOOL call(const std::string& point, const std::string& container, const std::function<BOOL(Note&)>& body,
          bool is_release = false);

/// The number of the current call's line in the log. No other call has the same number.
ULONG_PTR number_of_call();

} // namespace Kes::test_card

#endif // KES_TESTS_DOUBLES_CSP_CSP_CALL_H_
