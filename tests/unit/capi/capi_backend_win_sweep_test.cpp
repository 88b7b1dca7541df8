#include <functional>
#include <openssl/err.h>

#include "support/capi_fixture.h"

namespace Kes::test {
namespace {

/// The effects when one call of a typical run fails with one of the codes. In the error text, CODE is a
/// placeholder for the text of the Windows error and RC for its number.
struct Row {
    std::size_t call; // number among the calls that can fail, from 1
    std::vector<DWORD> codes;
    const char* operation; // the operation that fails, or ""
    std::string error;
};

const std::vector<DWORD> every{ordinary, bad_type, no_more_items};
const std::vector<DWORD> not_end{ordinary, bad_type};
const std::vector<DWORD> not_type{ordinary, no_more_items};
const std::vector<DWORD> only_ordinary{ordinary};
const std::vector<DWORD> only_type{bad_type};
const std::vector<DWORD> only_end{no_more_items};

const std::string open_provider =
    "capi_helper:79 Kes::CapiInit::CapiInit(): CryptAcquireContext() with prov_name=Test CSP, "
    "key_container_name=nullptr, flags=0xf0000000 failed: CODE";
const std::string open_container =
    "capi_helper:79 Kes::CapiInit::CapiInit(): CryptAcquireContext() with prov_name=Test CSP, "
    "key_container_name=c1, flags=0x0 failed: CODE";
const std::string no_key = "ossl_scard_if_imp:241 Kes::OsslScardIfImp::set_key(): invalid key_num (0): val=3 "
                           "(bad_argument)";
const std::string no_engine =
    "ossl_engine:58 Kes::OsslEngine::OsslEngine(): dynamic engine not available: val=2 (null_pointer)";
const std::string no_private_key =
    "ossl_engine:79 Kes::OsslEngine::read_private_key(): ENGINE_load_private_key() failed: rc=0";
const std::string key_type_refused = "ossl_engine_capi:297 Kes::CapiOsslEngine::set_key_type(): "
                                     "ENGINE_ctrl_cmd_string(key_type) failed: rc=RC";
const std::string not_printed =
    "ossl_helper:123 Kes::OsslHelper::cert_name_to_str(): X509_NAME_print_ex() failed: rc=RC";
const std::string no_store = "certstore_win:61 Kes::WinCertStoreImp::WinCertStoreImp(): CertOpenStore() with "
                             "name=MY failed: CODE";

std::string prov_param(const std::string& where, const std::string& param) {
    return "capi_helper:" + where + ": CryptGetProvParam(" + param + ") failed: CODE";
}

std::string prov_param_unknown(const std::string& param) {
    return "capi_helper:244 Kes::CapiProvParamReader::read_len(): CryptGetProvParam() with " + param +
           " is not supported: val=4 (unsupported)";
}

const std::string prov_len = "252 Kes::CapiProvParamReader::read_len()";
const std::string prov_read = "289 Kes::CapiProvParamReader::read()";
const std::string key_param_unknown = "capi_helper:423 Kes::CapiKeyParamReader::read_len(): "
                                      "CryptGetKeyParam() with param=26, flags=0 is not supported: val=4 "
                                      "(unsupported)";
const std::string key_param = "CryptGetKeyParam(param=26, flags=0) failed: CODE";

std::string engine_step(const std::string& line, const std::string& step) {
    return "ossl_engine_capi:" + line + " Kes::CapiOsslEngine::CapiOsslEngine(): " + step + " failed: rc=RC";
}

std::string store_engine_step(const std::string& line, const std::string& step) {
    return "ossl_engine_capi_store:" + line + " Kes::CapiStoreOsslEngine::CapiStoreOsslEngine(): " + step +
           " failed: rc=RC";
}

std::string command(const std::string& name) { return "ENGINE_ctrl_cmd_string(" + name + ")"; }

/// For one container with one signature key.
const std::vector<Row> capi_rows{
    {1, every, "read_scard", open_provider},
    {2, not_type, "", ""},
    {2, only_type, "read_scard", prov_param_unknown("param=6, flags=0")},
    {3, every, "", ""},
    {4, every, "", ""}, // release of the provider
    {5, every, "discover_keys", open_provider},
    {6, not_type, "", ""},
    {6, only_type, "discover_keys", prov_param_unknown("param=6, flags=0")},
    {7, every, "", ""},
    {8, every, "", ""}, // key specification mask
    {9, every, "", ""},
    {10, only_ordinary, "discover_keys", prov_param(prov_len, "param=2, flags=1")},
    {10, only_type, "discover_keys", prov_param_unknown("param=2, flags=1")},
    {10, only_end, "set_key", no_key},
    {11, not_end, "discover_keys", prov_param(prov_read, "param=2, flags=1")},
    {11, only_end, "set_key", no_key},
    {12, only_ordinary, "discover_keys", prov_param(prov_len, "param=2, flags=2")},
    {12, only_type, "discover_keys", prov_param_unknown("param=2, flags=2")},
    {12, only_end, "", ""},
    {13, every, "set_key", no_key}, // opening the container
    {14, every, "", ""},            // fetching the key exchange key, which does not exist
    {15, every, "set_key", no_key},
    {16, every, "set_key", no_key},
    {17, every, "set_key", no_key},
    {18, every, "", ""}, // releases
    {19, every, "", ""},
    {20, every, "", ""},
    {21, every, "ossl_load", no_engine},
    {22, every, "ossl_load", engine_step("109", command("SO_PATH"))},
    {23, every, "ossl_load", engine_step("116", command("LIST_ADD"))},
    {24, every, "ossl_load", engine_step("122", command("LOAD"))},
    {25, every, "ossl_load", engine_step("128", "ENGINE_init()")},
    {26, every, "ossl_load", engine_step("134", command("debug_level"))},
    {27, every, "ossl_load", engine_step("155", command("csp_name"))},
    {28, every, "ossl_load", engine_step("164", command("lookup_method"))},
    {29, every, "ossl_load", key_type_refused},
    {30, every, "ossl_load", engine_step("183", "ENGINE_set_default()")},
    {31, every, "ossl_load", key_type_refused},
    {32, every, "ossl_load", no_private_key},
    {33, every, "ossl_load", open_container},
    {34, every, "ossl_load",
     "capi_helper:113 Kes::CapiInit::fetch_key(): CryptGetUserKey() with key_type=SIGNATURE failed: CODE"},
    {35, not_type, "ossl_load", "capi_helper:426 Kes::CapiKeyParamReader::read_len(): " + key_param},
    {35, only_type, "ossl_load", key_param_unknown},
    {36, every, "ossl_load", "capi_helper:459 Kes::CapiKeyParamReader::read(): " + key_param},
    {37, every, "", ""}, // releases
    {38, every, "", ""},
    {39, every, "ossl_load", not_printed},
    {40, every, "ossl_load", not_printed},
};

/// For one certificate.
const std::vector<Row> store_rows{
    {1, every, "discover_keys", no_store},
    {2, every, "set_key", no_key},
    {3, every, "", ""}, // names in the log
    {4, every, "", ""},
    {5, every, "", ""},
    {6, every, "", ""},
    {7, every, "", ""}, // name of the key, which becomes empty and then matches every subject
    {8, every, "", ""},
    {9, every, "", ""}, // end of the enumeration and close of the store
    {10, every, "", ""},
    {11, every, "ossl_load", no_engine},
    {12, every, "ossl_load", store_engine_step("114", command("SO_PATH"))},
    {13, every, "ossl_load", store_engine_step("121", command("LIST_ADD"))},
    {14, every, "ossl_load", store_engine_step("127", command("LOAD"))},
    {15, every, "ossl_load", store_engine_step("133", "ENGINE_init()")},
    {16, every, "ossl_load", store_engine_step("139", command("debug_level"))},
    {17, every, "ossl_load", store_engine_step("160", command("store_name"))},
    {18, every, "ossl_load", store_engine_step("169", command("lookup_method"))},
    {19, every, "ossl_load", store_engine_step("178", "ENGINE_set_default()")},
    {20, every, "ossl_load", no_private_key},
    {21, every, "ossl_load", no_store},
    {22, every, "ossl_load",
     "ossl_engine_capi_store:236 Kes::CapiStoreOsslEngine::read_certificate(): error finding certificate "
     "with "
     "subject name='AT, Test Makers, Signer': rc=0"},
    {23, every, "", ""},
    {24, every, "ossl_load", not_printed},
    {25, every, "ossl_load", not_printed},
};

std::string with_code(std::string text, DWORD code) {
    if (const std::size_t at = text.find("CODE"); at != std::string::npos)
        return text.replace(at, 4, win_code(code));
    if (const std::size_t at = text.find("=RC"); at != std::string::npos)
        return text.replace(at + 1, 2, std::to_string(static_cast<int>(code)));
    return text;
}

struct BackEnd {
    const char* name;
    OsslScardCfg::CryptoIf crypto_if;
    const std::vector<Row>* rows;
};

class CapiBackendSweepTest : public CapiScardTest, public ::testing::WithParamInterface<BackEnd> {
protected:
    struct Operation {
        std::string name;
        std::function<int()> run;
    };

    void set_up() {
        set_up_doubles();
        set_up_capi();
        auto& containers = capi().providers.at(0).containers;
        containers.resize(1);
        containers[0].keys.erase(AT_KEYEXCHANGE);
        capi().stores.at(0).certs.resize(1);
        cfg = &make_capi_config(GetParam().crypto_if);
    }

    std::size_t run_from(std::size_t first) {
        while (first < operations.size() && operations[first].run() == 0)
            ++first;
        return first;
    }

    void expect_all_released() {
        scard().destroy();
        EXPECT_EQ(script().violations(), Lines());
        EXPECT_EQ(capi().unreleased_handles() + engine().unreleased_engines() + engine().unreleased_objects(),
                  0U);
    }

    /// The operation to repeat after a failure. If set_key() did not find the key, the discovery is repeated.
    static std::size_t retry_from(std::size_t failed) { return failed == set_key ? discover_keys : failed; }

    void expect(const Row& row, DWORD code) {
        set_up();
        script().fail_step(row.call, win_failure(code));
        const std::size_t failed = run_from(0);
        if (row.error.empty()) {
            EXPECT_EQ(failed, operations.size()) << last_error();
        } else {
            ASSERT_LT(failed, operations.size());
            EXPECT_EQ(operations[failed].name, row.operation);
            ::ERR_clear_error();
            // Only errors with a return code contain what OpenSSL reports.
            const bool has_queue = row.error.find("rc=") != std::string::npos;
            const std::string raised = has_queue ? raised_by(script().function_of_step(row.call)) : "";
            EXPECT_EQ(last_error(), with_code(row.error, code) + raised);
            EXPECT_EQ(state(), failed == 1         ? "initialized"
                               : failed <= set_key ? "configuring"
                                                   : "configured");
            evp_pkey_st* key = nullptr;
            ASSERT_EQ(scard().ossl_get_private_key(&key), 0);
            EXPECT_EQ(key, nullptr);
            script().clear_failures();
            EXPECT_EQ(run_from(retry_from(failed)), operations.size()) << last_error();
        }
        expect_all_released();
    }

    static constexpr std::size_t discover_keys = 2;
    static constexpr std::size_t set_key = 3;
    OsslScardCfg* cfg = nullptr;
    std::size_t num_keys = 0;
    const std::vector<Operation> operations{
        {"init", [&] { return scard().init(cfg); }},
        {"read_scard", [] { return scard().read_scard(); }},
        {"discover_keys", [&] { return scard().discover_keys(&num_keys); }},
        {"set_key", [] { return scard().set_key(std::size_t{0}); }},
        {"notify_config_done", [] { return scard().notify_config_done(); }},
        {"ossl_load", [] { return scard().ossl_load(); }},
        {"ossl_unload", [] { return scard().ossl_unload(); }},
    };
};

TEST_P(CapiBackendSweepTest, RunWithoutFailureMakesAsManyCallsAsTheTableLists) {
    set_up();
    EXPECT_EQ(run_from(0), operations.size()) << last_error();
    EXPECT_EQ(num_keys, 1U);
    EXPECT_EQ(script().steps(), GetParam().rows->back().call);
    expect_all_released();
}

TEST_P(CapiBackendSweepTest, EachFailedCallIsReportedAndTheRunSucceedsOnceItsCauseIsGone) {
    std::size_t done = 0;
    for (const Row& row : *GetParam().rows) {
        for (const DWORD code : row.codes) {
            SCOPED_TRACE("call " + std::to_string(row.call) + " fails with " + std::to_string(code));
            expect(row, code);
            ++done;
        }
    }
    EXPECT_EQ(done, GetParam().rows->back().call * std::size(all_codes));
}

INSTANTIATE_TEST_SUITE_P(BothBackEnds, CapiBackendSweepTest,
                         ::testing::Values(BackEnd{"capi", OsslScardCfg::capi, &capi_rows},
                                           BackEnd{"capi_store", OsslScardCfg::capi_store, &store_rows}),
                         [](const auto& back_end) { return std::string(back_end.param.name); });

} // namespace
} // namespace Kes::test
