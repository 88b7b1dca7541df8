// Each step of a typical run with the pkcs11 back-end fails once. The tests check the error, the state
// afterwards, and that everything that was acquired is released.
#include <algorithm>
#include <functional>

#include "pkcs11_client_fixture.h"

namespace Kes::test {
namespace {

/// The consequences if one step of a typical run fails with CKR_GENERAL_ERROR.
struct Row {
    const char* step;
    const char* operation; // the operation that fails
    std::string error;     // masked
    const char* state;     // after the failure
    Lines undone;          // the calls of the failing operation after the failing step
    Lines destroyed;       // the calls of destroy()
};

std::string queued(const std::string& function) { return "\nerror:PKCS#11 module:General Error:" + function; }

std::string libp11_error(const std::string& location, const std::string& function) {
    return location + ": " + function + "() failed: rc=-1" + queued(function);
}

std::string scan_error(int line, const std::string& function) {
    return libp11_error("pko_id_scanner_pkcs11_libp11:" + std::to_string(line) +
                            " Kes::Pkcs11Libp11PkoIdScanner::scan()",
                        function);
}

std::string engine_error(int line, const std::string& call) {
    return "ossl_engine_pkcs11:" + std::to_string(line) +
           " Kes::Pkcs11OsslEngine::Pkcs11OsslEngine(): " + call + " failed: rc=0";
}

const std::string load_error =
    "libp11_helper:86 Kes::Libp11Init::Libp11Init(): PKCS11_CTX_load() failed to load PKCS#11 library "
    "'itp11.dll': rc=-1" +
    queued("PKCS11_CTX_load");
const std::string login_error =
    libp11_error("libp11_helper:190 Kes::Libp11Init::authenticate()", "PKCS11_login");
const std::string pin_error =
    "ossl_engine_pkcs11:234 Kes::Pkcs11OsslEngine::set_pin(): ENGINE_ctrl_cmd_string(PIN) failed: rc=0" +
    queued("engine.PIN");
const std::string key_error =
    "ossl_engine:79 Kes::OsslEngine::read_private_key(): ENGINE_load_private_key() failed: rc=0" +
    queued("engine.load_privkey") + "\nerror:engine routines:failed loading private key:";

const Lines end_of_module{"PKCS11_CTX_unload(ctx1)", "card.finalize()", "PKCS11_CTX_free(ctx1)"};
const Lines end_of_slots{"PKCS11_release_all_slots(ctx1, slots1, 1)", "PKCS11_CTX_unload(ctx1)",
                         "card.finalize()", "PKCS11_CTX_free(ctx1)"};

Lines before_end_of_slots(Lines calls) {
    calls.insert(calls.end(), end_of_slots.begin(), end_of_slots.end());
    return calls;
}

/// An engine that has used the card finalizes it. The engine is finished a second time when its last
/// functional reference is dropped.
const Lines end_of_engine = before_end_of_slots({"engine.PIN(empty pin)", "engine.finish()"});
const Lines end_of_engine_with_card =
    before_end_of_slots({"engine.PIN(empty pin)", "engine.finish()", "card.finalize()"});
const Lines end_of_engine_with_key =
    before_end_of_slots({"engine.PIN(empty pin)", "engine.finish()", "card.finalize()", "engine.finish()"});
const Lines context_freed{"PKCS11_CTX_free(ctx1)"};
const Lines engine_finished{"engine.finish()"};

/// One row for each step, in order.
const Row rows[] = {
    {"PKCS11_CTX_new()",
     "init",
     "libp11_helper:78 Kes::Libp11Init::Libp11Init(): PKCS11_CTX_new() failed: val=2 (null_pointer)",
     "uninitialized",
     {},
     {}},
    {"PKCS11_CTX_load(ctx1, itp11.dll)", "init", load_error, "uninitialized", context_freed, {}},
    {"card.initialize()", "init", load_error, "uninitialized", context_freed, {}},
    {"PKCS11_enumerate_slots(ctx1)",
     "read_scard",
     libp11_error("libp11_helper:133 Kes::Libp11Init::read_scard()", "PKCS11_enumerate_slots"),
     "initialized",
     {},
     end_of_module},
    {"PKCS11_find_token(ctx1, slots1, 1)",
     "read_scard",
     "libp11_helper:140 Kes::Libp11Init::read_scard(): PKCS11_find_token() failed: val=11 (empty)",
     "initialized",
     {},
     end_of_module},
    {"PKCS11_is_logged_in(slots1, user)",
     "discover_keys",
     libp11_error("libp11_helper:163 Kes::Libp11Init::is_logged_in()", "PKCS11_is_logged_in"),
     "configuring",
     {},
     end_of_slots},
    {"PKCS11_login(slots1, user, right pin)", "discover_keys", login_error, "configuring", {}, end_of_slots},
    {"card.login(right pin)", "discover_keys", login_error, "configuring", {}, end_of_slots},
    {"PKCS11_enumerate_certs(slots1)",
     "discover_keys",
     scan_error(71, "PKCS11_enumerate_certs"),
     "configuring",
     {},
     end_of_slots},
    {"PKCS11_enumerate_keys(slots1)",
     "discover_keys",
     scan_error(78, "PKCS11_enumerate_keys"),
     "configuring",
     {},
     end_of_slots},
    {"PKCS11_enumerate_public_keys(slots1)",
     "discover_keys",
     scan_error(85, "PKCS11_enumerate_public_keys"),
     "configuring",
     {},
     end_of_slots},
    {"engine.bind()",
     "ossl_load",
     engine_error(104, "ENGINE_ctrl_cmd_string(LOAD)") + "\nerror:engine routines:init failed:",
     "configured",
     {},
     end_of_slots},
    {"engine.MODULE_PATH(itp11.dll)",
     "ossl_load",
     engine_error(110, "ENGINE_ctrl_cmd_string(MODULE_PATH)") + queued("engine.MODULE_PATH"),
     "configured",
     {},
     end_of_slots},
    {"engine.init()",
     "ossl_load",
     engine_error(116, "ENGINE_init()") + queued("engine.init"),
     "configured",
     {},
     end_of_slots},
    {"engine.PIN(right pin)", "ossl_load", pin_error, "configured", engine_finished, end_of_slots},
    {"engine.PIN(right pin)", "ossl_load", pin_error, "configured", {}, end_of_engine},
    {"engine.load_privkey(pkcs11:token=Card 1;id=%01;type=private)",
     "ossl_load",
     key_error,
     "configured",
     {},
     end_of_engine},
    {"card.initialize()", "ossl_load", key_error, "configured", {}, end_of_engine},
    {"engine.LOAD_CERT_CTRL(pkcs11:token=Card 1;id=%01;type=cert)",
     "ossl_load",
     "ossl_engine_pkcs11:213 Kes::Pkcs11OsslEngine::read_certificate(): ENGINE_ctrl_cmd() failed: rc=0" +
         queued("engine.LOAD_CERT_CTRL"),
     "configured",
     {},
     end_of_engine_with_key},
};
constexpr std::size_t find_token_step = 5;

std::string refused_in(const std::string& state) {
    return "operation not allowed in current state (cfg_state=" + state + "): val=6 (invalid_state)";
}

class Pkcs11SweepTest : public Pkcs11ClientTest {
protected:
    struct Operation {
        const char* name;
        std::function<int()> run;
        Lines states; // in which the operation is allowed
    };

    /// Runs the operations from the given index on.
    /// @return the index of the operation that failed; operations.size() if none did
    std::size_t run_from(std::size_t first) {
        while (first < operations.size() && operations[first].run() == 0)
            ++first;
        return first;
    }

    /// Expects every operation that the state does not allow to fail for that reason.
    void expect_refusals(const std::string& state) const {
        for (const Operation& operation : operations) {
            if (std::find(operation.states.begin(), operation.states.end(), state) != operation.states.end())
                continue;
            EXPECT_EQ(operation.run(), 1) << operation.name;
            EXPECT_EQ(error(), refused_in(state)) << operation.name;
        }
    }

    void expect_outcome(std::size_t failed, const Row& row) const {
        ASSERT_LT(failed, operations.size());
        EXPECT_STREQ(operations[failed].name, row.operation);
        EXPECT_EQ(masked_error(), row.error);
        EXPECT_EQ(key(), nullptr);
        EXPECT_EQ(certificate(), nullptr);
    }

    const std::vector<Operation> operations{
        {"init", [this] { return scard().init(make_config()); }, {"uninitialized"}},
        {"read_scard", [this] { return scard().read_scard(); }, {"initialized", "configuring", "configured"}},
        {"set_pin", [this] { return scard().set_pin(card_pin); }, {"configuring"}},
        {"discover_keys", [this] { return scard().discover_keys(&num_keys); }, {"configuring"}},
        // Allowed in every state. It fails for another reason here: a rejected discovery clears the keys.
        {"set_key",
         [this] { return scard().set_key(std::size_t{0}); },
         {"uninitialized", "initialized", "configuring", "configured"}},
        {"notify_config_done",
         [this] { return scard().notify_config_done(); },
         {"initialized", "configuring"}},
        {"ossl_load", [this] { return scard().ossl_load(); }, {"configured"}},
        {"ossl_unload", [this] { return scard().ossl_unload(); }, {"configured"}},
    };
};

class Pkcs11StepFailureTest : public Pkcs11SweepTest, public ::testing::WithParamInterface<std::size_t> {
protected:
    Pkcs11StepFailureTest() {
        card.fail_step(GetParam());
        if (is_find_token) expected_leaks = {"slots1: 1"};
    }

    const bool is_find_token = GetParam() == find_token_step; // each failure leaks the slots
    const Row& row = rows[GetParam() - 1];
};

INSTANTIATE_TEST_SUITE_P(Steps, Pkcs11StepFailureTest, ::testing::Range(std::size_t{1}, std::size(rows) + 1));

TEST_F(Pkcs11SweepTest, RunWithoutFailureMakesExactlyTheStepsOfTheTable) {
    EXPECT_EQ(run_from(0), operations.size()) << error();
    Lines steps;
    for (const Row& row : rows)
        steps.emplace_back(row.step);
    EXPECT_EQ(card.steps(), steps);
    scard().destroy();
    EXPECT_EQ(card.calls_after_step(std::size(rows)), end_of_engine_with_key);
}

TEST_P(Pkcs11StepFailureTest, FailureIsReportedAndResourcesAreReleasedInOrder) {
    expect_outcome(run_from(0), row);
    EXPECT_EQ(card.calls_after_step(GetParam()), row.undone);
    const std::size_t before = card.record().size();
    expect_refusals(row.state);
    EXPECT_EQ(card.record().size(), before); // a rejected operation calls no test double
    scard().destroy();
    Lines calls = row.undone;
    calls.insert(calls.end(), row.destroyed.begin(), row.destroyed.end());
    EXPECT_EQ(card.calls_after_step(GetParam()), calls);
}

TEST_P(Pkcs11StepFailureTest, RepeatedFailureIsReportedAgainAndTheNextAttemptWorks) {
    const std::size_t failed = run_from(0);
    const std::string step = row.step;
    card.fail_function(step.substr(0, step.find('(')), 5);
    // The PIN is sent twice, so a repeated failure of the second command would already fail at the first.
    if (step.find("PIN") == std::string::npos) {
        EXPECT_EQ(run_from(failed), failed);
        expect_outcome(failed, row);
        if (is_find_token) expected_leaks.emplace_back("slots2: 1");
    }
    card.clear_failures();
    EXPECT_EQ(run_from(failed), operations.size()) << error();
    EXPECT_EQ(num_keys, 1U);
    EXPECT_EQ(error(), "");
}

} // namespace
} // namespace Kes::test
