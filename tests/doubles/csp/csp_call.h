#ifndef KES_TESTS_DOUBLES_CSP_CSP_CALL_H_
#define KES_TESTS_DOUBLES_CSP_CSP_CALL_H_

#include <functional>
#include <string>

#include "utils/windows_api.h"

namespace Kes::test_card {

/// What a call tells the log besides its name: " +k7" for a handle that it made, " -k7" for one that it
/// ended.
using Note = std::string;

/// Makes one call of the card: of the point ("sign") and the container ("", when there is none).
///
/// The call leaves one line in the card's log: "sign@Login", then the note, then " !0x80090016" when it
/// failed. The log is the card's file "calls".
///
/// It fails when a line of the card's file "faults" says so, which is read anew at each call:
/// "<which>=<code>", where <which> is the point, or point@container, or the number that the call's line will
/// have in the log, from 1 on. The code is decimal, or hexadecimal after "0x". A planned failure keeps the
/// body from running, unless it is a release: what could not be released properly is gone all the same.
///
/// Without the card every call fails with SCARD_W_REMOVED_CARD, but for the opening of a context, which has
/// an error of its own.
///
/// @param body  returns whether it went well, with the last error set if not
BOOL call(const std::string& point, const std::string& container, const std::function<BOOL(Note&)>& body,
          bool is_release = false);

/// The number that the line of the call now made will have in the log: unlike any before.
ULONG_PTR number_of_call();

} // namespace Kes::test_card

#endif // KES_TESTS_DOUBLES_CSP_CSP_CALL_H_
