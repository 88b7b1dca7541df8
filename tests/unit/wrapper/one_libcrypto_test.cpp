#include "scripted_scard.h"

// tests/package checks programs that really have two.
namespace Kes::test {
namespace {

const char* const in_this_program = "a text";

TEST(OneLibcryptoTest, ProgramAndLibraryWithTheSameLibcryptoHaveNoProblem) {
    EXPECT_EQ(marvo::detail::libcrypto_problem(in_this_program), "");
}

TEST(OneLibcryptoTest, LibcryptoInAnotherFileIsReportedWithBothFiles) {
    const std::string program = marvo::detail::module_at(in_this_program).file;
    const std::string libcrypto = marvo::detail::module_at(OpenSSL_version(OPENSSL_VERSION)).file;
    EXPECT_NE(program, libcrypto);
    EXPECT_EQ(marvo::detail::libcrypto_problem(in_this_program, in_this_program),
              "the program uses the libcrypto in " + program + ", but libmarvo uses " + libcrypto +
                  ": link libcrypto dynamically");
}

} // namespace
} // namespace Kes::test
