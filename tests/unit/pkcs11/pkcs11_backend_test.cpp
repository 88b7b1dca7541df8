#include "pkcs11/pkcs11_backend.h"

#include "base/ossl_scard_cfg_imp.h"
#include "support/core_fixture.h"
#include "utils/error.h"

namespace Kes::test {
namespace {

class Pkcs11BackendTest : public CoreTest {
protected:
    void TearDown() override {
        backend_.reset();
        CoreTest::TearDown();
    }

    static std::string text_of_token(const TokenInfo& token) {
        std::string text = token.label + " (" + token.manufacturer + ", " + token.model + ", " +
                           token.serial + ") in " + token.reader;
        const std::pair<bool, const char*> flags[] = {{token.is_used, "used"},
                                                      {token.is_initialized, "initialized"},
                                                      {token.is_login_required, "login required"},
                                                      {token.has_pin_pad, "PIN pad"}};
        for (const auto& [is_set, name] : flags)
            if (is_set) text += std::string(", ") + name;
        return text;
    }

    Lines tokens() const {
        Lines lines;
        for (const TokenInfo& token : backend_->tokens())
            lines.push_back(text_of_token(token));
        return lines;
    }

    const OsslScardCfgImp cfg_{OsslScardCfg::pkcs11};
    std::unique_ptr<Pkcs11Backend> backend_ = std::make_unique<Pkcs11Backend>();
};

TEST_F(Pkcs11BackendTest, NoTokenIsKnownBeforeTheCardWasRead) {
    EXPECT_EQ(tokens(), Lines());
    backend_->open(CfgReader(cfg_));
    EXPECT_EQ(tokens(), Lines());
}

TEST_F(Pkcs11BackendTest, EveryTokenIsDescribedAndSlotsWithoutTokenAreNot) {
    libp11().slots.insert(libp11().slots.begin(), {"Slot maker", "Empty slot", std::nullopt});
    ScriptedToken other;
    other.label = "Other";
    other.serialnr = std::nullopt;
    other.is_initialized = false;
    other.loginRequired = 0;
    other.secureLogin = 1;
    libp11().slots.push_back({"Slot maker", "Slot 3", other});
    backend_->open(CfgReader(cfg_));
    backend_->read_card(CfgReader(cfg_), false);
    EXPECT_EQ(tokens(), (Lines{"Token 1 (Maker, Model 7, 0042) in Slot 1, used, initialized, login required",
                               "Other (Maker, Model 7, ) in Slot 3, PIN pad"}));
}

TEST_F(Pkcs11BackendTest, NoTokenIsKnownAfterAFailedRead) {
    backend_->open(CfgReader(cfg_));
    backend_->read_card(CfgReader(cfg_), false);
    libp11().slots[0].token.reset();
    EXPECT_THROW(backend_->read_card(CfgReader(cfg_), false), ErrorBase);
    expected_slot_arrays = 1;
    EXPECT_EQ(tokens(), Lines());
}

} // namespace
} // namespace Kes::test
