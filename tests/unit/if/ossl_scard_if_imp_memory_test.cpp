#include "support/core_fixture.h"
#include "support/failing_allocation.h"

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

TEST_F(OsslScardIfImpMemoryTest, InitSucceedsAfterAnyAllocationOfAnEarlierCallFailed) {
    OsslScardCfg* cfg = &make_config();
    int status = 0;
    const std::size_t failures = for_each_failing_allocation(
        [&] { status = scard().init(cfg); },
        [&](bool) {
            // The log hides some failures, so that they do not stop the client.
            if (status != 0) {
                EXPECT_THAT(outcome(status, last_error()),
                            testing::AnyOf("1 std::bad_alloc", testing::HasSubstr("cfg cannot be cloned")));
                EXPECT_EQ(scard().init(cfg), 0) << last_error();
            }
            EXPECT_EQ(state(), "initialized");
            scard().destroy();
            cfg = &make_config();
        });
    EXPECT_GE(failures, 10U);
}

} // namespace
} // namespace Kes::test
