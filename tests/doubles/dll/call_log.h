#ifndef KES_TESTS_DOUBLES_DLL_CALL_LOG_H_
#define KES_TESTS_DOUBLES_DLL_CALL_LOG_H_

#include <string>
#include <utility>
#include <vector>

/// Shared by the three test doubles for the pkcs11 back-end: the card's folder, the record of their calls in
/// the file "calls", and the planned failures in the file "fail".
///
/// The environment variable MARVO_TEST_CARD contains the folder's path. Both files are opened again in each
/// call, so that a test can read and change them at any time. Without the variable, nothing is recorded and
/// nothing fails.
///
/// Each line of "calls" begins with its kind:
///   step: a call that can fail                call: a call that cannot fail
///   acquired: an object to be released        released: the same object, by name
///   violation: a wrong use
/// A line "function=code" in "fail" makes every call of the function fail. "step=number" or
/// "step=number,code" makes a step fail; the number counts the steps in "calls", from 1. The code is a CKR_*
/// value, by default general_error.
namespace Kes::test {

constexpr unsigned long card_ok = 0x0;
constexpr unsigned long general_error = 0x5;
constexpr unsigned long object_handle_invalid = 0x82;
constexpr unsigned long pin_incorrect = 0xa0;
constexpr unsigned long user_already_logged_in = 0x100;
constexpr unsigned long user_not_logged_in = 0x101;
constexpr unsigned long not_initialized = 0x190;
constexpr unsigned long already_initialized = 0x191;

/// A file of the card's folder; "" without a card's folder.
std::string card_file(const std::string& name);

/// The "name=value" lines of a file in the card's folder, in order.
std::vector<std::pair<std::string, std::string>> read_settings(const std::string& name);

/// Records a call that can fail. @return the code of a planned failure; card_ok if the call is to succeed
unsigned long step(const std::string& function, const std::string& arguments);

void note_call(const std::string& call);
void note_violation(const std::string& text);
void note_acquired(const std::string& name);
void note_released(const std::string& name);

/// "right pin", "wrong pin", "empty pin" or "no pin" (null). No copy of the PIN is kept.
std::string describe_pin(const char* pin);

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_DLL_CALL_LOG_H_
