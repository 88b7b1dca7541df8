#include <array>

#include "support/core_fixture.h"
#include "support/memory_search.h"
#include "utils/pin.h"

namespace Kes::test {
namespace {

/// A PIN whose plain text is in memory only while a function uses it. It is stored with inverted bits.
class Canary {
public:
    explicit constexpr Canary(unsigned char first) {
        for (std::size_t i = 0; i < size; ++i)
            inverted_[i] = static_cast<unsigned char>((first + i * i * 5U) % 89U + '!') ^ inversion_mask;
    }

    /// Calls the function with the plain PIN, then overwrites the memory.
    template <typename Function>
    void with(Function function) const {
        volatile char* pin = new char[size + 1];
        for (std::size_t i = 0; i < size; ++i)
            pin[i] = static_cast<char>(inverted_[i] ^ inversion_mask);
        pin[size] = '\0';
        function(const_cast<const char*>(pin));
        overwrite(const_cast<char*>(pin), size);
        delete[] pin;
    }

    /// The number of copies of the PIN, or of its second half, in the writable memory of this process.
    std::size_t count_in_memory() const {
        return test::count_in_memory({std::span(inverted_).subspan(size / 2), inversion_mask});
    }

private:
    static constexpr std::size_t size = 64;
    static constexpr unsigned char inversion_mask = 0xff;

    std::array<unsigned char, size> inverted_{};
};

constexpr Canary canary(3);
constexpr Canary other(11);

class PinTraceTest : public ScardTest {
protected:
    void SetUp() override {
        canary.with([](const char* pin) { script().set_right_pin(pin); });
        OsslScardCfg& cfg = make_config();
        cfg.set_logfile(dir.file("log").c_str());
        cfg.set_logfile_severity(63);
        ASSERT_EQ(scard().init(&cfg), 0);
        ASSERT_EQ(scard().read_scard(), 0);
    }

    static void set_pin(const Canary& value) {
        value.with([](const char* pin) { EXPECT_EQ(scard().set_pin(pin), 0); });
    }

    static int discover() {
        std::size_t count = 0;
        return scard().discover_keys(&count);
    }

    /// The calls that received a PIN. Each entry says whether it was right, wrong or empty.
    static Lines calls_with_pin() {
        Lines found;
        for (const std::string& call : script().calls())
            if (call.find(" pin)") != std::string::npos) found.push_back(call);
        return found;
    }

    static void load() {
        ASSERT_EQ(scard().set_key(std::size_t{0}), 0);
        ASSERT_EQ(scard().notify_config_done(), 0);
        ASSERT_EQ(scard().ossl_load(), 0) << last_error();
    }

    TempDir dir;
};

TEST_F(PinTraceTest, SearchFindsAnExistingCopy) {
    EXPECT_EQ(canary.count_in_memory(), 0U);
    canary.with([](const char*) { EXPECT_EQ(canary.count_in_memory(), 1U); });
    EXPECT_EQ(canary.count_in_memory(), 0U);
}

TEST_F(PinTraceTest, StoredPinIsErasedByANewPinAndByDestroy) {
    set_pin(canary);
    EXPECT_EQ(canary.count_in_memory(), 1U);
    set_pin(other);
    EXPECT_EQ(canary.count_in_memory(), 0U);
    EXPECT_EQ(other.count_in_memory(), 1U);
    scard().destroy();
    EXPECT_EQ(other.count_in_memory(), 0U);
}

TEST_F(PinTraceTest, EmptyPinReplacesTheStoredOne) {
    set_pin(canary);
    EXPECT_EQ(scard().set_pin(""), 0);
    EXPECT_EQ(canary.count_in_memory(), 0U);
    EXPECT_EQ(discover(), 1);
    EXPECT_EQ(calls_with_pin(), Lines());
}

TEST_F(PinTraceTest, TokenWithoutLoginErasesTheStoredPin) {
    set_pin(canary);
    token().loginRequired = 0;
    ASSERT_EQ(scard().read_scard(), 0);
    EXPECT_EQ(canary.count_in_memory(), 0U);
}

TEST_F(PinTraceTest, PinRejectedInTheWrongStateIsNotStored) {
    set_pin(canary);
    ASSERT_EQ(discover(), 0);
    load();
    other.with([](const char* pin) { EXPECT_EQ(scard().set_pin(pin), 1); });
    EXPECT_EQ(other.count_in_memory(), 0U);
    EXPECT_EQ(canary.count_in_memory(), 1U);
}

TEST_F(PinTraceTest, CompleteRunLeavesOnlyTheStoredCopyWhichDestroyErases) {
    set_pin(canary);
    ASSERT_EQ(discover(), 0);
    load();
    EXPECT_EQ(canary.count_in_memory(), 1U);
    ASSERT_EQ(scard().ossl_unload(), 0);
    scard().destroy();
    EXPECT_EQ(canary.count_in_memory(), 0U);
}

TEST_F(PinTraceTest, FailedLoginLeavesOnlyTheStoredCopyWhichTheNextPinErases) {
    set_pin(other);
    ASSERT_EQ(discover(), 1);
    EXPECT_EQ(other.count_in_memory(), 1U);
    set_pin(canary);
    EXPECT_EQ(other.count_in_memory(), 0U);
    EXPECT_EQ(discover(), 0) << "the right PIN after a wrong one";
}

TEST_F(PinTraceTest, FailedEngineLoadLeavesOnlyTheStoredCopy) {
    set_pin(canary);
    ASSERT_EQ(discover(), 0);
    ASSERT_EQ(scard().set_key(std::size_t{0}), 0);
    ASSERT_EQ(scard().notify_config_done(), 0);
    script().fail_function("ENGINE_set_default");
    ASSERT_EQ(scard().ossl_load(), 1);
    EXPECT_EQ(canary.count_in_memory(), 1U);
}

TEST_F(PinTraceTest, PinIsPassedOnlyToOneLoginAndToTheEngine) {
    set_pin(canary);
    ASSERT_EQ(discover(), 0);
    load();
    ASSERT_EQ(scard().ossl_load(), 0);
    EXPECT_EQ(calls_with_pin(), (Lines{"PKCS11_login(slot1.1, user, right pin)",
                                       "ENGINE_ctrl_cmd_string(engine1, PIN, right pin)",
                                       "ENGINE_ctrl_cmd_string(engine1, PIN, right pin)"}));
}

TEST_F(PinTraceTest, WrongPinUsesOneLoginAttemptWithoutRetry) {
    set_pin(other);
    EXPECT_EQ(discover(), 1);
    EXPECT_EQ(calls_with_pin(), Lines{"PKCS11_login(slot1.1, user, wrong pin)"});
}

TEST_F(PinTraceTest, NoCallReceivesAPinWhenNoneIsSet) {
    EXPECT_EQ(discover(), 1);
    EXPECT_EQ(last_error(),
              "libp11_helper:185 Kes::Libp11Init::authenticate(): no PIN specified: val=11 (empty)");
    EXPECT_EQ(calls_with_pin(), Lines());
}

TEST_F(PinTraceTest, PinRefusedByTheEngineFailsTheLoadAndCanBeCorrected) {
    engine().needs_right_pin = true;
    set_pin(canary);
    ASSERT_EQ(discover(), 0);
    set_pin(other);
    ASSERT_EQ(scard().set_key(std::size_t{0}), 0);
    ASSERT_EQ(scard().notify_config_done(), 0);
    EXPECT_EQ(scard().ossl_load(), 1);
    EXPECT_THAT(last_error(), testing::HasSubstr("ENGINE_load_private_key() failed: rc=0\n"));
    ASSERT_EQ(scard().read_scard(), 0);
    set_pin(canary);
    ASSERT_EQ(discover(), 0);
    ASSERT_EQ(scard().notify_config_done(), 0);
    EXPECT_EQ(scard().ossl_load(), 0) << last_error();
}

TEST_F(PinTraceTest, LogAndErrorTextsDoNotContainThePin) {
    set_pin(other);
    ASSERT_EQ(discover(), 1);
    other.with([](const char* pin) { EXPECT_EQ(last_error().find(pin), std::string::npos); });
    set_pin(canary);
    ASSERT_EQ(discover(), 0);
    load();
    scard().destroy();
    const std::string log = read_file(dir.file("log"));
    EXPECT_THAT(log, testing::HasSubstr("pin specified=true"));
    canary.with([&](const char* pin) { EXPECT_EQ(log.find(pin), std::string::npos); });
    other.with([&](const char* pin) { EXPECT_EQ(log.find(pin), std::string::npos); });
}

} // namespace
} // namespace Kes::test
