// Each call of the card fails in turn, with the capi back-end and the default settings.
#include <algorithm>
#include <gmock/gmock.h>

#include "capi_client_fixture.h"

namespace Kes::test {
namespace {

constexpr unsigned long removed_card = 0x80100069; // SCARD_W_REMOVED_CARD

struct Row {
    std::string call;
    std::string error;  // the operation that fails and its error; "" if none fails
    std::string logged; // a line of the log; "" if none is expected
};

// In all texts, $ is a placeholder for the Windows error.
const std::string provider_not_acquired = "capi_helper:79 Kes::CapiInit::CapiInit(): CryptAcquireContext() "
                                          "with prov_name=Microsoft Base Smart Card Crypto "
                                          "Provider, key_container_name=nullptr, flags=0xf0000000 failed: $";
const std::string container_not_acquired = "capi_helper:79 Kes::CapiInit::CapiInit(): CryptAcquireContext() "
                                           "with prov_name=Microsoft Base Smart Card Crypto "
                                           "Provider, key_container_name=sign, flags=0x0 failed: $";
const std::string no_exchange_key =
    "capi_helper:113 Kes::CapiInit::fetch_key(): CryptGetUserKey() with key_type=KEYEXCHANGE failed: $";
const std::string no_signature_key =
    "capi_helper:113 Kes::CapiInit::fetch_key(): CryptGetUserKey() with key_type=SIGNATURE failed: $";
const std::string certificate_not_sized =
    "capi_helper:426 Kes::CapiKeyParamReader::read_len(): CryptGetKeyParam(param=26, flags=0) failed: $";
const std::string certificate_not_read =
    "capi_helper:459 Kes::CapiKeyParamReader::read(): CryptGetKeyParam(param=26, flags=0) failed: $";
const std::string key_not_destroyed = "<error> CryptDestroyKey() failed: $";
const std::string context_not_released = "<error> CryptReleaseContext() failed: $";

std::string parameter_not_sized(const std::string& parameter, int flags) {
    return "capi_helper:252 Kes::CapiProvParamReader::read_len(): CryptGetProvParam(param=" + parameter +
           ", flags=" + std::to_string(flags) + ") failed: $";
}

std::string parameter_not_read(const std::string& parameter, int flags) {
    return "capi_helper:289 Kes::CapiProvParamReader::read(): CryptGetProvParam(param=" + parameter +
           ", flags=" + std::to_string(flags) + ") failed: $";
}

/// A failure because of which the card's only container is skipped, so that no key can be selected.
Row without_key(const std::string& call, const std::string& logged) {
    return {call,
            "set_key: ossl_scard_if_imp:241 Kes::OsslScardIfImp::set_key(): invalid key_num (0): val=3 "
            "(bad_argument)",
            logged};
}

/// A failure that prevents the engine from loading the key.
Row engine_key(const std::string& call, const std::string& reason) {
    return {call,
            "ossl_load: ossl_engine:79 Kes::OsslEngine::read_private_key(): ENGINE_load_private_key() "
            "failed: rc=0\n"
            "error:lib:" +
                reason + ":Error code= 0x80100069\nerror:engine routines:failed loading private key:",
            ""};
}

const std::vector<Row> rows{
    {"acquire@", "read_scard: " + provider_not_acquired, ""},
    {"container_size@", "", "<warn> " + parameter_not_sized("6", 0)},
    {"container@", "", "<warn> " + parameter_not_read("6", 0)},
    {"release@", "", context_not_released},

    {"acquire@", "discover_keys: " + provider_not_acquired, ""},
    {"container_size@", "", "<warn> " + parameter_not_sized("6", 0)},
    {"container@", "", "<warn> " + parameter_not_read("6", 0)},
    {"key_specs_size@", "", "<debug> " + parameter_not_sized("39", 0)},
    {"key_specs@", "", "<debug> " + parameter_not_read("39", 0)},
    {"list_size@", "discover_keys: " + parameter_not_sized("2", 1), ""},
    {"list@", "discover_keys: " + parameter_not_read("2", 1), ""},
    {"list_size@", "discover_keys: " + parameter_not_sized("2", 2), ""},
    {"list@", "discover_keys: " + parameter_not_read("2", 2), ""},
    without_key("acquire@sign", "<debug> " + container_not_acquired),
    {"user_key_1@sign", "", "<warn> " + no_exchange_key}, // the container has no such key
    without_key("user_key_2@sign", "<warn> " + no_signature_key),
    without_key("certificate_size@sign", "<debug> " + certificate_not_sized),
    without_key("certificate@sign", "<debug> " + certificate_not_read),
    {"destroy_key@sign", "", key_not_destroyed},
    {"release@sign", "", context_not_released},
    {"release@", "", context_not_released},

    {"acquire@",
     "ossl_load: ossl_engine_capi:155 Kes::CapiOsslEngine::CapiOsslEngine(): "
     "ENGINE_ctrl_cmd_string(csp_name) failed: "
     "rc=0\nerror:lib:cryptacquirecontext error:Error code= 0x80100069",
     ""},
    {"release@", "", ""},
    engine_key("acquire@sign", "cryptacquirecontext error"),
    engine_key("user_key_2@sign", "getuserkey error"),
    engine_key("export_size@sign", "pubkey export length error"),
    engine_key("export@sign", "pubkey export error"),
    {"acquire@sign", "ossl_load: " + container_not_acquired, ""},
    {"user_key_2@sign", "ossl_load: " + no_signature_key, ""},
    {"certificate_size@sign", "ossl_load: " + certificate_not_sized, ""},
    {"certificate@sign", "ossl_load: " + certificate_not_read, ""},
    {"destroy_key@sign", "", key_not_destroyed},
    {"release@sign", "", context_not_released},

    {"create_hash@sign", "signature: error:lib:can't create hash object\n", ""},
    {"set_hash@sign", "signature: error:lib:can't set hash value\n", ""},
    {"sign@sign", "signature: error:lib:error signing hash\n", ""},
    {"destroy_hash@sign", "", ""},
    {"destroy_key@sign", "", ""},
    {"release@sign", "", ""},
};

std::string with_error(std::string text) {
    const std::size_t place = text.find('$');
    return place == std::string::npos ? text : text.replace(place, 1, windows_error(removed_card));
}

class CardSweepTest : public CapiClientTest {
protected:
    CardSweepTest() {
        log_severity = 63;
        card.add("sign");
    }

    /// Runs the sequence from init() or read_scard() to a signature and to ossl_unload().
    /// @return the first failure in the format of the table; "" if nothing fails
    std::string run(bool with_init) {
        const auto failed = [this](const char* operation) {
            return std::string(operation) + ": " + masked_errors(error());
        };
        if (with_init && scard().init(make_config()) != 0) return failed("init");
        if (scard().read_scard() != 0) return failed("read_scard");
        if (scard().discover_keys(&num_keys) != 0) return failed("discover_keys");
        if (scard().set_key(std::size_t{0}) != 0) return failed("set_key");
        if (scard().notify_config_done() != 0) return failed("notify_config_done");
        if (scard().ossl_load() != 0) return failed("ossl_load");
        if (!signing_problem(key(), certificate(), pkcs1).empty()) return "signature: " + queued_errors();
        return scard().ossl_unload() == 0 ? "" : failed("ossl_unload");
    }
};

class CardCallFailureTest : public CardSweepTest, public ::testing::WithParamInterface<std::size_t> {
protected:
    CardCallFailureTest() { card.fail(std::to_string(GetParam()), removed_card); }

    const Row& row = rows[GetParam() - 1];
};

INSTANTIATE_TEST_SUITE_P(Calls, CardCallFailureTest, ::testing::Range(std::size_t{1}, rows.size() + 1));

TEST_F(CardSweepTest, RunWithoutFailureMakesExactlyTheCallsOfTheTable) {
    EXPECT_EQ(run(true), "");
    scard().destroy();
    Lines calls;
    for (const Row& row : rows)
        calls.push_back(row.call);
    EXPECT_EQ(card.calls(), calls);
}

TEST_P(CardCallFailureTest, FailureIsReportedWithTheWindowsErrorAndEverythingIsReleased) {
    EXPECT_EQ(run(true), with_error(row.error));
    EXPECT_EQ(card.calls().at(GetParam() - 1), row.call);
    if (!row.logged.empty()) {
        EXPECT_THAT(log(), ::testing::Contains(with_error(row.logged)));
    }
}

TEST_P(CardCallFailureTest, NextRunWorksAfterTheFailure) {
    run(true);
    card.clear_failures();
    EXPECT_EQ(run(false), "");
}

} // namespace
} // namespace Kes::test
