#ifndef KES_TESTS_DOUBLES_DLL_CALL_LOG_H_
#define KES_TESTS_DOUBLES_DLL_CALL_LOG_H_

#include <string>
#include <utility>
#include <vector>

/// What the three test doubles of the pkcs11 road share: the card's folder, the record of what they were
/// asked in the file "calls", and the plan of what is to fail in the file "fail".
///
/// The variable MARVO_TEST_CARD names the folder. Both files are opened anew at each call, so that a test may
/// read and change them at any time; without the variable nothing is recorded and nothing fails.
///
/// A line of "calls" begins with what it tells:
///   step: a call that can fail      call: one that cannot      violation: a wrong use
///   acquired: something that has to be released                released: the same, by name
/// A line of "fail" is "function=code", for every call of the function, or "step=number" or
/// "step=number,code", for the step with that number (from 1) since "calls" was begun. The code is a CKR_*
/// number, general_error without one.
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

/// The "name=value" lines of such a file, in order.
std::vector<std::pair<std::string, std::string>> read_settings(const std::string& name);

/// Records a call that can fail. @return the code it has to fail with, card_ok when it is to succeed
unsigned long step(const std::string& function, const std::string& arguments);

void note_call(const std::string& call);
void note_violation(const std::string& text);
void note_acquired(const std::string& name);
void note_released(const std::string& name);

/// What a PIN is worth: "right pin", "wrong pin", "empty pin", "no pin". No copy of it is kept.
std::string describe_pin(const char* pin);

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_DLL_CALL_LOG_H_
