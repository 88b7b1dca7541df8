// The library with a libp11 that lacks PKCS11_update_slots, as versions before 0.4.12 do. The environment of
// the test makes the loader find it. Each of its functions ends the process.
#include <gtest/gtest.h>

#include "marvo/ossl_scard_cfg.h"
#include "marvo/ossl_scard_if.h"
#include "support/support.h"

namespace Kes::test {
namespace {

TEST(OldLibp11Test, EveryInitFailsAndNamesFileAndNeededVersion) {
    const TempDir dir;
    OsslScardIf* scard = get_ossl_scard_if();
    OsslScardCfg* cfg = scard->get_config_default();
    cfg->set_crypto_if(OsslScardCfg::pkcs11);
    cfg->set_logfile(dir.file("log").c_str());
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(scard->init(cfg), 1);
        EXPECT_STREQ(scard->get_last_error_msg(),
                     "libp11_library:20 Kes::require_libp11(): '" MARVO_OLD_LIBP11
                     "' has no function PKCS11_update_slots: libp11 0.4.12 or later is needed: "
                     "val=4 (unsupported)");
    }
    scard->destroy();
}

} // namespace
} // namespace Kes::test
