#include <cstdio>

#include <gtest/gtest.h>

#include "marvo/one_libcrypto.hpp"

// On Windows, the check always finds the libcrypto that the program loads.
namespace Kes::test {
namespace {

TEST(OneLibcryptoTest, LibraryWithoutLibcryptoIsReported) {
    const void* in_the_c_library = stdout;
    EXPECT_EQ(marvo::detail::libcrypto_problem(in_the_c_library), "the libcrypto of libmarvo was not found");
}

} // namespace
} // namespace Kes::test
