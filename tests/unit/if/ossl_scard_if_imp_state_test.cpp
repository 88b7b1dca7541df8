#include <functional>
#include <set>

#include "support/core_fixture.h"

namespace Kes::test {
namespace {

constexpr CfgState states[] = {CfgState::uninitialized, CfgState::initialized, CfgState::configuring,
                               CfgState::configured};

std::string forbidden(CfgState state) {
    return "1 operation not allowed in current state (cfg_state=" + cfg_state_name(state) +
           "): val=6 (invalid_state)";
}

/// The result of an operation in one state and the following state. An empty result means "forbidden".
struct Expected {
    std::string result;
    CfgState next;
};

struct Row {
    const char* name;
    std::function<std::string()> run;
    std::array<Expected, 4> expected; // by state
};

class OsslScardIfImpStateTest : public ScardTest {
protected:
    static std::string settings() {
        std::vector<char> buffer(100000);
        return scard().get_config_used()->dump_settings(buffer.data(), buffer.size());
    }

    /// Runs every row in every state, each time with a new object.
    void check_all(const std::vector<Row>& rows) {
        for (const Row& row : rows) {
            for (const CfgState from : states) {
                SCOPED_TRACE(std::string(row.name) + " in " + cfg_state_name(from));
                set_up_doubles();
                go_to(from);
                check(row, from);
                scard().destroy();
                EXPECT_EQ(script().violations(), Lines());
            }
        }
    }

    void check(const Row& row, CfgState from) {
        const Expected& expected = row.expected[static_cast<std::size_t>(from)];
        const bool is_forbidden = expected.result.empty();
        const std::string before = settings();
        script().take_calls();
        EXPECT_EQ(row.run(), is_forbidden ? forbidden(from) : expected.result);
        EXPECT_EQ(state(), cfg_state_name(is_forbidden ? from : expected.next));
        if (!is_forbidden) return;
        EXPECT_EQ(script().calls(), Lines());
        EXPECT_EQ(settings(), before);
    }

    template <typename Function>
    static std::string status_of(Function function) {
        const int status = function();
        return outcome(status, last_error());
    }

    /// Like status_of(), for functions that throw.
    template <typename Function>
    static std::string thrown_by(Function function) {
        const std::string text = error_text(function);
        return text == "no exception" ? "0" : "1 " + text;
    }

    static std::string select_key_without_input() {
        const ConsoleWithoutInput console;
        std::size_t key = 77;
        const std::string result = status_of([&] { return scard().select_key_from_console(&key); });
        return key == 77 ? result : "wrote " + std::to_string(key);
    }

    static constexpr auto uninitialized = CfgState::uninitialized;
    static constexpr auto initialized = CfgState::initialized;
    static constexpr auto configuring = CfgState::configuring;
    static constexpr auto configured = CfgState::configured;
    const Expected no{"", uninitialized};

    /// The operation is allowed in every state and does not change the state.
    static std::array<Expected, 4> always(const std::string& result) {
        return {Expected{result, uninitialized}, Expected{result, initialized}, Expected{result, configuring},
                Expected{result, configured}};
    }
};

TEST_F(OsslScardIfImpStateTest, EveryInterfaceOperationIsAllowedOnlyInItsStates) {
    std::size_t count = 0;
    evp_pkey_st* key = nullptr;
    x509_st* cert = nullptr;
    const std::string no_key = "1 ossl_scard_if_imp:241 Kes::OsslScardIfImp::set_key(): invalid key_num (0): "
                               "val=3 (bad_argument)";
    const std::string no_name =
        "1 ossl_scard_if_imp:221 Kes::OsslScardIfImp::get_key_name(): invalid key_num "
        "(0): val=3 (bad_argument)";
    const std::string no_id = "1 ossl_scard_if_imp:263 Kes::OsslScardIfImp::set_key(): specified key not "
                              "found: val=8 (not_found)";
    const std::string no_input =
        "1 cons_select_menu:143 Kes::ConsSelectMenu<unsigned __int64>::select(): user "
        "abort <end of input>: val=16 (user_abort)";
    const std::vector<Row> rows{
        {"version_check", [] { return status_of([] { return scard().version_check(4); }); }, always("0")},
        {"get_config_default", [] { return outcome(scard().get_config_default() == nullptr, ""); },
         always("0")},
        {"get_config_used", [] { return outcome(scard().get_config_used() == nullptr, ""); }, always("0")},
        {"init",
         [] { return status_of([] { return scard().init(&make_config()); }); },
         {Expected{"0", initialized}, no, no, no}},
        {"read_scard",
         [] { return status_of([] { return scard().read_scard(); }); },
         {no, Expected{"0", configuring}, Expected{"0", configuring}, Expected{"0", configuring}}},
        {"is_pin_required",
         [] { return std::string(scard().is_pin_required() ? "yes" : "no"); },
         {Expected{"no", uninitialized}, Expected{"no", initialized}, Expected{"yes", configuring},
          Expected{"yes", configured}}},
        {"set_pin",
         [] { return status_of([] { return scard().set_pin("1234"); }); },
         {no, no, Expected{"0", configuring}, no}},
        {"discover_keys",
         [&] { return status_of([&] { return scard().discover_keys(&count); }); },
         {no, no, Expected{"0", configuring}, no}},
        {"get_key_name",
         [] { return status_of([] { return scard().get_key_name(0) == nullptr ? 1 : 0; }); },
         {Expected{no_name, uninitialized}, Expected{no_name, initialized}, Expected{"0", configuring},
          Expected{"0", configured}}},
        {"set_key(key_type, key_id)",
         [] { return status_of([] { return scard().set_key(0U, "%01%ab"); }); },
         {Expected{no_id, uninitialized}, Expected{no_id, initialized}, Expected{"0", configuring}, no}},
        {"set_key(key_num)",
         [] { return status_of([] { return scard().set_key(0UL); }); },
         {Expected{no_key, uninitialized}, Expected{no_key, initialized}, Expected{"0", configuring}, no}},
        {"notify_config_done",
         [] { return status_of([] { return scard().notify_config_done(); }); },
         {no, Expected{"0", configured}, Expected{"0", configured}, no}},
        {"ossl_load",
         [] { return status_of([] { return scard().ossl_load(); }); },
         {no, no, no, Expected{"0", configured}}},
        {"ossl_unload",
         [] { return status_of([] { return scard().ossl_unload(); }); },
         {no, no, no, Expected{"0", configured}}},
        {"ossl_get_private_key",
         [&] { return status_of([&] { return scard().ossl_get_private_key(&key); }); }, always("0")},
        {"ossl_get_certificate",
         [&] { return status_of([&] { return scard().ossl_get_certificate(&cert); }); }, always("0")},
        {"get_version", [] { return std::string(scard().get_version()); }, always("4.3.0")},
        {"get_last_error_msg", [] { return "text: " + last_error(); }, always("text: ")},
        {"select_key_from_console", [] { return select_key_without_input(); }, always(no_input)},
        {"destroy",
         [] { return scard().destroy(), std::string("0"); },
         {Expected{"0", uninitialized}, Expected{"0", uninitialized}, Expected{"0", uninitialized},
          Expected{"0", uninitialized}}},
    };
    std::set<std::string> names;
    for (const Row& row : rows)
        names.insert(row.name);
    EXPECT_EQ(names.size(), 20U) << "the interface's operations, without the destructor";
    check_all(rows);
}

TEST_F(OsslScardIfImpStateTest, EveryManagerOperationIsAllowedOnlyInItsStates) {
    const PkoId key{PkoType::private_key, 0, private_uri, "%01%ab", "Token 1: Auth key", nullptr};
    const auto manager = []() -> OsslScardMgr& { return OsslScardMgr::instance(); };
    check_all({
        {"init",
         [&] { return thrown_by([&] { manager().init(&make_config()); }); },
         {Expected{"0", initialized}, no, no, no}},
        {"read_scard",
         [&] { return thrown_by([&] { manager().read_scard(); }); },
         {no, Expected{"0", configuring}, Expected{"0", configuring}, Expected{"0", configuring}}},
        {"set_pin",
         [&] { return thrown_by([&] { manager().set_pin("1234"); }); },
         {no, no, Expected{"0", configuring}, no}},
        {"discover_keys",
         [&] { return thrown_by([&] { manager().discover_keys(); }); },
         {no, no, Expected{"0", configuring}, no}},
        {"set_key_type",
         [&] { return thrown_by([&] { manager().set_key_type(&key); }); },
         {no, no, Expected{"0", configuring}, no}},
        {"set_priv_key_name",
         [&] { return thrown_by([&] { manager().set_priv_key_name(&key); }); },
         {no, no, Expected{"0", configuring}, no}},
        {"set_cert_name_from_priv_key",
         [&] { return thrown_by([&] { manager().set_cert_name_from_priv_key(&key); }); },
         {no, no, Expected{"0", configuring}, no}},
        {"notify_config_done",
         [&] { return thrown_by([&] { manager().notify_config_done(); }); },
         {no, Expected{"0", configured}, Expected{"0", configured}, no}},
        {"ossl_load",
         [&] { return thrown_by([&] { manager().ossl_load(); }); },
         {no, no, no, Expected{"0", configured}}},
        {"ossl_unload",
         [&] { return thrown_by([&] { manager().ossl_unload(); }); },
         {no, no, no, Expected{"0", configured}}},
        {"get_config_default", [&] { return outcome(manager().get_config_default() == nullptr, ""); },
         always("0")},
        {"get_config_used", [&] { return outcome(manager().get_config_used() == nullptr, ""); }, always("0")},
    });
}

TEST_F(OsslScardIfImpStateTest, StateIsCheckedBeforeTheArguments) {
    const auto manager = []() -> OsslScardMgr& { return OsslScardMgr::instance(); };
    go_to(configured);
    const std::string expected = forbidden(configured).substr(2);
    EXPECT_EQ(error_text([&] { manager().init(nullptr); }), expected);
    EXPECT_EQ(error_text([&] { manager().set_key_type(nullptr); }), expected);
    EXPECT_EQ(error_text([&] { manager().set_priv_key_name(nullptr); }), expected);
    EXPECT_EQ(error_text([&] { manager().set_cert_name_from_priv_key(nullptr); }), expected);
}

TEST_F(OsslScardIfImpStateTest, EveryStateValueHasAName) {
    EXPECT_EQ(cfg_state_name(uninitialized), "uninitialized");
    EXPECT_EQ(cfg_state_name(initialized), "initialized");
    EXPECT_EQ(cfg_state_name(configuring), "configuring");
    EXPECT_EQ(cfg_state_name(configured), "configured");
    EXPECT_EQ(cfg_state_name(static_cast<CfgState>(4)), "uninitialized");
}

} // namespace
} // namespace Kes::test
