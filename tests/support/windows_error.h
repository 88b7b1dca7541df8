#ifndef KES_TESTS_SUPPORT_WINDOWS_ERROR_H_
#define KES_TESTS_SUPPORT_WINDOWS_ERROR_H_

#include <string>

namespace Kes::test {

/// A Windows error as error texts contain it: "val=2 [0x2] (text)", with the system's text.
std::string windows_error(unsigned long code);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_WINDOWS_ERROR_H_
