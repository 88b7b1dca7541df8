#include <algorithm>
#include <functional>
#include <openssl/err.h>

#include "support/core_fixture.h"

namespace Kes::test {
namespace {

const Lines end_of_module{"PKCS11_CTX_unload(ctx1)", "PKCS11_CTX_free(ctx1)"};
const Lines end_of_slots{"PKCS11_release_all_slots(ctx1, slots1, 1)", "PKCS11_CTX_unload(ctx1)",
                         "PKCS11_CTX_free(ctx1)"};
const std::string pin_wiped = "ENGINE_ctrl_cmd_string(engine1, PIN, empty pin)";
const Lines end_of_engine = [] {
    Lines calls = engine_unload_calls();
    calls.insert(calls.begin(), pin_wiped);
    calls.insert(calls.end(), end_of_slots.begin(), end_of_slots.end());
    return calls;
}();

Lines before(const std::string& first, Lines rest) {
    rest.insert(rest.begin(), first);
    return rest;
}

/// The effects when one call of a typical run fails with return code 7.
struct Row {
    const char* operation; // the operation that fails
    std::string error;
    const char* state; // after the failure
    Lines undone;      // the calls of the failing operation after the failing call
    Lines destroyed;   // the calls of destroy()
};

std::string scan_error(int line, const std::string& function) {
    return "pko_id_scanner_pkcs11_libp11:" + std::to_string(line) +
           " Kes::Pkcs11Libp11PkoIdScanner::scan(): " + function + "() failed: rc=7";
}

std::string engine_error(int line, const std::string& call) {
    return "ossl_engine_pkcs11:" + std::to_string(line) +
           " Kes::Pkcs11OsslEngine::Pkcs11OsslEngine(): " + call + " failed: rc=7";
}

const std::string pin_error =
    "ossl_engine_pkcs11:234 Kes::Pkcs11OsslEngine::set_pin(): ENGINE_ctrl_cmd_string(PIN) failed: rc=7";
const std::string print_error =
    "ossl_helper:123 Kes::OsslHelper::cert_name_to_str(): X509_NAME_print_ex() failed: rc=7";
const Lines freed{"ENGINE_free(engine1)"};
const Lines removed{"ENGINE_remove(engine1)", "ENGINE_free(engine1)"};
const Lines finished{"ENGINE_finish(engine1)", "ENGINE_remove(engine1)", "ENGINE_free(engine1)"};
const Lines finished_after_pin{"ENGINE_finish(engine1)", pin_wiped, "ENGINE_remove(engine1)",
                               "ENGINE_free(engine1)"};
const Lines key_freed{"EVP_PKEY_free(lent1)", "EVP_PKEY_free(key1)"};

/// One row for each call that can fail, in the order of the calls.
const Row rows[] = {
    {"init",
     "libp11_helper:78 Kes::Libp11Init::Libp11Init(): PKCS11_CTX_new() failed: val=2 (null_pointer)",
     "uninitialized",
     {},
     {}},
    {"init",
     "libp11_helper:86 Kes::Libp11Init::Libp11Init(): PKCS11_CTX_load() failed to load PKCS#11 library "
     "'module.so': rc=7",
     "uninitialized",
     {"PKCS11_CTX_free(ctx1)"},
     {}},
    {"read_scard",
     "libp11_helper:133 Kes::Libp11Init::read_scard(): PKCS11_enumerate_slots() failed: rc=7",
     "initialized",
     {},
     end_of_module},
    {"read_scard",
     "libp11_helper:140 Kes::Libp11Init::read_scard(): PKCS11_find_token() failed: val=11 (empty)",
     "initialized",
     {},
     end_of_module},
    {"discover_keys",
     "libp11_helper:163 Kes::Libp11Init::is_logged_in(): PKCS11_is_logged_in() failed: rc=7",
     "configuring",
     {},
     end_of_slots},
    {"discover_keys",
     "libp11_helper:190 Kes::Libp11Init::authenticate(): PKCS11_login() failed: rc=7",
     "configuring",
     {},
     end_of_slots},
    {"discover_keys", scan_error(71, "PKCS11_enumerate_certs"), "configuring", {}, end_of_slots},
    {"discover_keys", scan_error(78, "PKCS11_enumerate_keys"), "configuring", {}, end_of_slots},
    {"discover_keys", scan_error(85, "PKCS11_enumerate_public_keys"), "configuring", {}, end_of_slots},
    {"ossl_load",
     "ossl_engine:58 Kes::OsslEngine::OsslEngine(): dynamic engine not available: val=2 (null_pointer)",
     "configured",
     {},
     end_of_slots},
    {"ossl_load", engine_error(91, "ENGINE_ctrl_cmd_string(SO_PATH)"), "configured", freed, end_of_slots},
    {"ossl_load", engine_error(98, "ENGINE_ctrl_cmd_string(LIST_ADD)"), "configured", freed, end_of_slots},
    {"ossl_load", engine_error(104, "ENGINE_ctrl_cmd_string(LOAD)"), "configured", freed, end_of_slots},
    {"ossl_load", engine_error(110, "ENGINE_ctrl_cmd_string(MODULE_PATH)"), "configured", removed,
     end_of_slots},
    {"ossl_load", engine_error(116, "ENGINE_init()"), "configured", removed, end_of_slots},
    {"ossl_load", pin_error, "configured", finished, end_of_slots},
    {"ossl_load", engine_error(150, "ENGINE_set_default()"), "configured", finished_after_pin, end_of_slots},
    {"ossl_load", pin_error, "configured", {}, end_of_engine},
    {"ossl_load",
     "ossl_engine:79 Kes::OsslEngine::read_private_key(): ENGINE_load_private_key() failed: rc=0",
     "configured",
     {},
     end_of_engine},
    {"ossl_load",
     "ossl_engine_pkcs11:213 Kes::Pkcs11OsslEngine::read_certificate(): ENGINE_ctrl_cmd() failed: rc=7",
     "configured", key_freed, end_of_engine},
    {"ossl_load", print_error, "configured", key_freed, before("X509_free(cert1)", end_of_engine)},
    {"ossl_load", print_error, "configured", key_freed, before("X509_free(cert1)", end_of_engine)},
};
constexpr std::size_t find_token_step = 4;

/// The load diagnosis that follows the error of step n.
std::string load_diagnosis(std::size_t n) {
    constexpr std::size_t load_engine_step = 13;
    if (n == load_engine_step) return missing_engine_detail("./engine.so");
    // An engine may load the module in any of the later steps.
    constexpr std::size_t steps_of_module[] = {2, 15, 19, 20};
    const bool is_of_module =
        std::find(std::begin(steps_of_module), std::end(steps_of_module), n) != std::end(steps_of_module);
    return is_of_module ? missing_module_detail("module.so") : "";
}

class OsslScardIfImpFailureSweepTest : public ScardTest {
protected:
    struct Operation {
        const char* name;
        std::function<int()> run;
    };

    /// Runs the operations from the given number. @return the number of the failed one, or operations.size()
    std::size_t run_from(std::size_t first) {
        while (first < operations.size() && operations[first].run() == 0)
            ++first;
        return first;
    }

    OsslScardCfg* cfg = &make_config();
    std::size_t num_keys = 0;
    const std::vector<Operation> operations{
        {"init", [&] { return scard().init(cfg); }},
        {"read_scard", [] { return scard().read_scard(); }},
        {"set_pin", [] { return scard().set_pin("1234"); }},
        {"discover_keys", [&] { return scard().discover_keys(&num_keys); }},
        {"set_key", [] { return scard().set_key(0); }},
        {"notify_config_done", [] { return scard().notify_config_done(); }},
        {"ossl_load", [] { return scard().ossl_load(); }},
        {"ossl_unload", [] { return scard().ossl_unload(); }},
    };

    /// Runs with new test doubles that fail step n. @return the number of the operation that failed
    std::size_t run_with_failure(std::size_t n) {
        set_up_doubles();
        script().fail_step(n, {});
        cfg = &make_config();
        return run_from(0);
    }

    void expect_failure(std::size_t n, std::size_t operation) {
        const Row& row = rows[n - 1];
        ASSERT_LT(operation, operations.size());
        EXPECT_STREQ(operations[operation].name, row.operation);
        // Only errors with a return code contain what OpenSSL reports.
        const bool has_queue = row.error.find("rc=") != std::string::npos;
        ::ERR_clear_error();
        const std::string raised = has_queue ? raised_by(script().function_of_step(n)) : "";
        EXPECT_EQ(last_error(), row.error + raised + load_diagnosis(n));
        EXPECT_EQ(state(), row.state);
        EXPECT_EQ(script().calls_after_step(n), row.undone);
        evp_pkey_st* key = nullptr;
        ASSERT_EQ(scard().ossl_get_private_key(&key), 0);
        EXPECT_EQ(key, nullptr);
    }
};

TEST_F(OsslScardIfImpFailureSweepTest, RunWithoutFailureMakesExactlyTheListedCalls) {
    EXPECT_EQ(run_from(0), operations.size());
    EXPECT_EQ(script().steps(), std::size(rows));
    EXPECT_EQ(script().calls(),
              (Lines{"ERR_load_PKCS11_strings()",
                     "PKCS11_CTX_new()",
                     "PKCS11_CTX_load(ctx1, module.so)",
                     "PKCS11_enumerate_slots(ctx1)",
                     "PKCS11_find_token(ctx1, slots1, 1)",
                     "PKCS11_is_logged_in(slot1.1, user)",
                     "PKCS11_login(slot1.1, user, right pin)",
                     "PKCS11_enumerate_certs(token1.1)",
                     "PKCS11_enumerate_keys(token1.1)",
                     "PKCS11_enumerate_public_keys(token1.1)",
                     "ENGINE_by_id(dynamic)",
                     "ENGINE_ctrl_cmd_string(engine1, SO_PATH, ./engine.so)",
                     "ENGINE_ctrl_cmd_string(engine1, LIST_ADD, 1)",
                     "ENGINE_ctrl_cmd_string(engine1, LOAD, null)",
                     "ENGINE_get_id(engine1)",
                     "ENGINE_ctrl_cmd_string(engine1, MODULE_PATH, module.so)",
                     "ENGINE_init(engine1)",
                     "ENGINE_ctrl_cmd_string(engine1, PIN, right pin)",
                     "ENGINE_set_default(engine1, 65535)",
                     "ENGINE_get_id(engine1)",
                     "ENGINE_ctrl_cmd_string(engine1, PIN, right pin)",
                     std::string("ENGINE_load_private_key(engine1, ") + private_uri + ")",
                     std::string("ENGINE_ctrl_cmd(engine1, LOAD_CERT_CTRL, ") + cert_uri + ")",
                     "X509_NAME_print_ex()",
                     "X509_NAME_print_ex()",
                     "X509_free(cert1)",
                     "EVP_PKEY_free(lent1)",
                     "EVP_PKEY_free(key1)"}));
    script().take_calls();
    scard().destroy();
    EXPECT_EQ(script().calls(), end_of_engine);
}

TEST_F(OsslScardIfImpFailureSweepTest, DestroyFreesCertificateKeyEngineAndModuleInOrder) {
    go_to(CfgState::configured);
    ASSERT_EQ(scard().ossl_load(), 0);
    script().take_calls();
    scard().destroy();
    EXPECT_EQ(script().calls(), (Lines{"X509_free(cert1)"} + key_freed + end_of_engine));
}

TEST_F(OsslScardIfImpFailureSweepTest, EachFailedCallIsReportedAndAllResourcesAreReleasedInOrder) {
    for (std::size_t n = 1; n <= std::size(rows); ++n) {
        SCOPED_TRACE(n);
        expect_failure(n, run_with_failure(n));
        script().take_calls();
        scard().destroy();
        EXPECT_EQ(script().calls(), rows[n - 1].destroyed);
        EXPECT_EQ(script().violations(), Lines());
        EXPECT_EQ(engine().unreleased_engines() + engine().unreleased_objects() +
                      libp11().unreleased_contexts(),
                  0U);
        EXPECT_EQ(libp11().unreleased_slot_arrays(), n == find_token_step ? 1U : 0U);
    }
}

TEST_F(OsslScardIfImpFailureSweepTest, EachFailedOperationSucceedsOnceItsCauseIsGone) {
    for (std::size_t n = 1; n <= std::size(rows); ++n) {
        SCOPED_TRACE(n);
        const std::size_t failed = run_with_failure(n);
        script().clear_failures();
        EXPECT_EQ(run_from(failed), operations.size()) << last_error();
        EXPECT_EQ(num_keys, 1U);
        EXPECT_EQ(last_error(), "");
        EXPECT_EQ(state(), "configured");
        EXPECT_EQ(engine().unreleased_objects(), 0U);
        scard().destroy();
        EXPECT_EQ(script().violations(), Lines());
        EXPECT_EQ(engine().unreleased_engines() + engine().unreleased_objects() +
                      libp11().unreleased_contexts(),
                  0U);
        EXPECT_EQ(libp11().unreleased_slot_arrays(), n == find_token_step ? 1U : 0U);
    }
}

TEST_F(OsslScardIfImpFailureSweepTest, RepeatedFailureIsReportedIdentically) {
    for (std::size_t n = 1; n <= std::size(rows); ++n) {
        SCOPED_TRACE(n);
        const std::size_t failed = run_with_failure(n);
        const std::string first = last_error();
        const std::string before_retry = state();
        // From here on, every call of the failed function fails.
        const std::string function = script().function_of_step(n);
        script().clear_failures();
        if (function != "ENGINE_ctrl_cmd_string") {
            script().fail_function(function);
            EXPECT_EQ(operations[failed].run(), 1);
            EXPECT_EQ(last_error(), first);
            EXPECT_EQ(state(), before_retry);
        }
        script().clear_failures();
        scard().destroy();
    }
}

} // namespace
} // namespace Kes::test
