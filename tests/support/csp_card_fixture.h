#ifndef KES_TESTS_SUPPORT_CSP_CARD_FIXTURE_H_
#define KES_TESTS_SUPPORT_CSP_CARD_FIXTURE_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "certificates.h"
#include "csp_card.h"
#include "error_lines.h"
#include "signing.h"
#include "support.h"
#include "system_store.h"
#include "windows_error.h"

namespace Kes::test {

/// For tests of the library's classes with a card that has the container "both". Captures the log of all
/// severities. After each test, the fixture checks that every handle was released exactly once.
class CardTest : public ::testing::Test {
protected:
    CardTest() { card.add("both"); }
    void TearDown() override { EXPECT_EQ(card.unreleased(), Lines()); }

    CspCard card;
    LogCapture log;
};

/// A store for this process only, deleted by the destructor.
class TempStore : public SystemStore {
public:
    TempStore() : SystemStore("marvo-test-" + std::to_string(::GetCurrentProcessId())) {}
    ~TempStore() { remove(); }
};

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_CSP_CARD_FIXTURE_H_
