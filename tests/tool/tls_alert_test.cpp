#include "tool/login/tls_alert.h"

#include <gtest/gtest.h>

namespace Kes::test {
namespace {

TEST(TlsAlertTest, KnownAlertIsExplained) {
    const tool::AlertExplanation alert = tool::explain_alert(116);
    EXPECT_EQ(alert.name, "certificate_required");
    EXPECT_EQ(alert.meaning, "the server requires a certificate and received none");
    EXPECT_EQ(alert.remedy, "check that the key can sign with one of the server's algorithms");
}

TEST(TlsAlertTest, UnknownAlertHasItsNumber) {
    const tool::AlertExplanation alert = tool::explain_alert(200);
    EXPECT_EQ(alert.name, "alert 200");
    EXPECT_EQ(alert.remedy, "look at the server's log, which names the reason");
}

} // namespace
} // namespace Kes::test
