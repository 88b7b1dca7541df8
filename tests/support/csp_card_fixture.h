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

/// The library's own classes, with a card that holds the container "both", and the log of all severities. At
/// the end every handle of the card must have been released once.
class CardTest : public ::testing::Test {
protected:
    CardTest() { card.add("both"); }
    void TearDown() override { EXPECT_EQ(card.unreleased(), Lines()); }

    CspCard card;
    LogCapture log;
};

/// A store that nobody else uses, gone with the object.
class TempStore : public SystemStore {
public:
    TempStore() : SystemStore("marvo-test-" + std::to_string(::GetCurrentProcessId())) {}
    ~TempStore() { remove(); }
};

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_CSP_CARD_FIXTURE_H_
