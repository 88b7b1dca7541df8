#ifndef KES_TESTS_SUPPORT_LIBRARY_WORDS_WIN_H_
#define KES_TESTS_SUPPORT_LIBRARY_WORDS_WIN_H_

#include <string>

#include "utils/windows_api.h"

namespace Kes::test {

/// A Windows error number as error texts show it, with the text that the system has for it.
std::string windows_code_text(DWORD error);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_LIBRARY_WORDS_WIN_H_
