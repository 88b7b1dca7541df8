#ifndef KES_TESTS_DOUBLES_PKCS11_MODULE_CONTROL_FILES_H_
#define KES_TESTS_DOUBLES_PKCS11_MODULE_CONTROL_FILES_H_

#include <filesystem>
#include <p11-kit/pkcs11.h>
#include <string>
#include <vector>

namespace Kes::test {

/// The position of a call: its number in the process, and its number among the calls of the same function.
/// Both begin with 1.
struct CallNumber {
    unsigned long of_all;
    unsigned long of_function;
};

/// The folder named by the environment variable MARVO_TEST_TOKENS; empty if it is not set.
std::filesystem::path tokens_folder();

/// The names of the readers' folders, sorted.
std::vector<std::string> reader_names();

/// The result that the file "fail" plans for this call; CKR_OK if the call is to be carried out.
CK_RV planned_failure(const std::string& function, CallNumber number);

/// Adds the call to the file "calls" if this file exists.
void record_call(const std::string& function, CallNumber number, CK_RV result);

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_PKCS11_MODULE_CONTROL_FILES_H_
