#include "support/core_fixture.h"
#include "support/failing_allocation.h"
#include "utils/logger.h"

namespace Kes::test {
namespace {

using OsslScardIfImpMemoryTest = ScardTest;

TEST_F(OsslScardIfImpMemoryTest, SelectionFailsWhenTheSelectedKeyCannotBeStored) {
    go_to(CfgState::configuring);
    read_and_discover();
    OsslScardCfg& used = *scard().get_config_used();
    int status = 0;
    const std::size_t failures = for_each_failing_allocation(
        [&] {
            used.set_priv_key_name("");
            used.set_cert_name("");
            status = scard().set_key(std::size_t{0});
        },
        [&](bool) {
            const bool is_stored = used.get_priv_key_name() == std::string(private_uri) &&
                                   used.get_cert_name() == std::string(cert_uri);
            EXPECT_EQ(outcome(status, last_error()), is_stored ? "0" : "1 std::bad_alloc");
        });
    EXPECT_GE(failures, 2U); // the two names
}

TEST_F(OsslScardIfImpMemoryTest, InitFailsWithEachFailedAllocationAndSucceedsWithoutOne) {
    OsslScardCfg* cfg = &make_config();
    // The log does not report its own failures. Without this, an init() that cannot copy cfg opens the default log.
    scard().get_config_used()->set_logfile("");
    Logger::instance().set_severity_mask(0);
    int status = 0;
    // No call succeeds before the last one, so that the failures include those of objects that the process
    // creates at their first use. CTest runs each test in a process of its own.
    const std::size_t failures =
        for_each_failing_allocation([&] { status = scard().init(cfg); },
                                    [&](bool has_failed) {
                                        EXPECT_EQ(status, has_failed ? 1 : 0);
                                        EXPECT_EQ(state(), has_failed ? "uninitialized" : "initialized");
                                    });
    EXPECT_GE(failures, 10U);
}

} // namespace
} // namespace Kes::test
