#include "core_fixture.h"

#include <iostream>
#include <openssl/err.h>

#include "certificates.h"
#include "if/ossl_scard_if_imp.h"
#include "utils/error.h"

namespace Kes::test {
namespace {

const std::filesystem::path folder(KES_TEST_DATA);

void reset_doubles() {
    ScriptedLibp11::instance().reset();
    ScriptedEngine::instance().reset();
    CallScript::instance().reset();
}

} // namespace

const TestData& TestData::instance() {
    static const TestData data{read_pem_certificate(folder / "client.pem"),
                               read_pem_certificate(folder / "encipher.pem"),
                               read_pem_certificate(folder / "bare.pem"), read_pem_key(folder / "key.pem")};
    return data;
}

CoreTest::CoreTest() { set_up_doubles(); }

void CoreTest::set_up_doubles() {
    const TestData& test_data = data();
    reset_doubles();
    script().set_right_pin("1234");
    ScriptedSlot slot;
    slot.token.emplace();
    slot.token->certs = {object(test_data.client.get())};
    slot.token->private_keys = {object()};
    slot.token->public_keys = {object()};
    libp11().slots = {slot};
    engine().private_key = test_data.key.get();
    engine().public_key = test_data.key.get();
    engine().certificate = test_data.client.get();
}

CoreTest::~CoreTest() { reset_doubles(); }

void CoreTest::TearDown() {
    EXPECT_EQ(script().violations(), Lines());
    EXPECT_EQ(libp11().unreleased_contexts(), 0U);
    EXPECT_EQ(libp11().unreleased_slot_arrays(), expected_slot_arrays);
    EXPECT_EQ(engine().unreleased_engines(), 0U);
    EXPECT_EQ(engine().unreleased_objects(), 0U);
}

void ScardTest::TearDown() {
    OsslScardIfImp::destroy_instance();
    EXPECT_FALSE(OsslScardMgr::exists());
    CoreTest::TearDown();
}

OsslScardIf& ScardTest::scard() { return OsslScardIfImp::instance(); }

OsslScardCfg& ScardTest::make_config() {
    OsslScardCfg& cfg = *scard().get_config_default();
    cfg.set_crypto_if(OsslScardCfg::pkcs11);
    cfg.set_pkcs11_module_dll("module.so");
    cfg.set_pkcs11_openssl_engine_dll("./engine.so");
    cfg.set_logfile("");
    return cfg;
}

void ScardTest::go_to(CfgState wanted) {
    if (wanted == CfgState::uninitialized) return;
    ASSERT_EQ(scard().init(&make_config()), 0) << last_error();
    if (wanted == CfgState::initialized) return;
    read_and_discover();
    if (wanted == CfgState::configuring) return;
    ASSERT_EQ(scard().set_key(0), 0) << last_error();
    ASSERT_EQ(scard().notify_config_done(), 0) << last_error();
}

void ScardTest::read_and_discover() {
    std::size_t count = 0;
    ASSERT_EQ(scard().read_scard(), 0) << last_error();
    ASSERT_EQ(scard().set_pin("1234"), 0) << last_error();
    ASSERT_EQ(scard().discover_keys(&count), 0) << last_error();
}

std::string ScardTest::state() {
    // init(nullptr) fails in every state, and the error text contains the state.
    const std::string text = error_text([] { OsslScardMgr::instance().init(nullptr); });
    for (const auto candidate : {CfgState::initialized, CfgState::configuring, CfgState::configured})
        if (text == "operation not allowed in current state (cfg_state=" + cfg_state_name(candidate) +
                        "): val=6 (invalid_state)")
            return cfg_state_name(candidate);
    return text == "ossl_scard_mgr:112 Kes::OsslScardMgr::init(): cfg is a null pointer: val=3 (bad_argument)"
               ? "uninitialized"
               : text;
}

Lines engine_unload_calls() {
    return {"ENGINE_get_id(engine1)",
            "ENGINE_unregister_RSA(engine1)",
            "ENGINE_unregister_DSA(engine1)",
            "ENGINE_unregister_EC(engine1)",
            "ENGINE_unregister_DH(engine1)",
            "ENGINE_unregister_RAND(engine1)",
            "ENGINE_unregister_ciphers(engine1)",
            "ENGINE_unregister_digests(engine1)",
            "ENGINE_unregister_pkey_meths(engine1)",
            "ENGINE_unregister_pkey_asn1_meths(engine1)",
            "ENGINE_remove(engine1)",
            "ENGINE_finish(engine1)",
            "ENGINE_free(engine1)"};
}

ConsoleWithoutInput::ConsoleWithoutInput() : console_(std::cout.rdbuf(output_.rdbuf())) { keyboard_.end(); }

ConsoleWithoutInput::~ConsoleWithoutInput() { std::cout.rdbuf(console_); }

std::string raised_by(const std::string& function) {
    EXPECT_EQ(::ERR_peek_error(), 0UL) << "something is on the error queue";
    raise_error_of(function);
    const std::string text = OsslErrorCode(0).text;
    return text.empty() ? "" : "\n" + text;
}

Lines operator+(Lines first, const Lines& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

std::string outcome(int status, const std::string& error) {
    return std::to_string(status) + (error.empty() ? "" : " " + error);
}

} // namespace Kes::test
