#ifndef KES_TESTS_SUPPORT_WINDOWS_ERROR_H_
#define KES_TESTS_SUPPORT_WINDOWS_ERROR_H_

#include <string>

namespace Kes::test {

/// A Windows error as error texts contain it: "val=2 [0x2] (text)", with the system's text.
std::string windows_error(unsigned long code);

/// Where Windows searches for a library without a folder, as error texts contain it.
constexpr const char* searched_folders =
    ": looked for it in the program's folder, the system's folders, the current folder and PATH";

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_WINDOWS_ERROR_H_
