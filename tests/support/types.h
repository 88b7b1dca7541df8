#ifndef KES_TESTS_SUPPORT_TYPES_H_
#define KES_TESTS_SUPPORT_TYPES_H_

#include <string>
#include <vector>

namespace Kes::test {

using Bytes = std::vector<unsigned char>;
using Lines = std::vector<std::string>;

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_TYPES_H_
