#include <algorithm>
#include <gtest/gtest.h>

#include "support/support.h"
#include "tool/environment_check.h"

namespace Kes::test {
namespace {

TEST(EnvironmentTest, VariablesAreListedWithTheirValues) {
    const EnvVar variable("MARVO_TEST_VARIABLE", "a=b");
    const auto variables = tool::list_variables();
    const std::pair<std::string, std::string> expected("MARVO_TEST_VARIABLE", "a=b");
    EXPECT_EQ(std::count(variables.begin(), variables.end(), expected), 1);
}

TEST(EnvironmentTest, CaseOfNamesMatters) {
    const auto mistakes = tool::check_environment({{"OSSL_SCARD_CFG_CRYPTO_IF", "pkcs11"}});
    ASSERT_EQ(mistakes.size(), 1U);
    EXPECT_EQ(mistakes[0].finding, "OSSL_SCARD_CFG_CRYPTO_IF is not a setting and has no effect");
    EXPECT_EQ(mistakes[0].remedy, "rename it to ossl_scard_cfg_crypto_if");
}

} // namespace
} // namespace Kes::test
