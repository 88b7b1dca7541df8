#include <functional>

#include "base/env_settings.h"
#include "base/ossl_scard_cfg_imp.h"
#include "support/client_cfg.h"
#include "support/core_fixture.h"

namespace Kes::test {
namespace {

using Cfg = OsslScardCfg;

constexpr const char* prefix = "ossl_scard_cfg_";

const char* const keys[] = {"crypto_if",
                            "capi_openssl_engine_dll",
                            "capi_csp_name",
                            "capi_key_type",
                            "pkcs11_openssl_engine_dll",
                            "pkcs11_module_dll",
                            "capi_store_openssl_engine_dll",
                            "capi_store_cert_store_name",
                            "priv_key_name",
                            "cert_name",
                            "key_usage_filter_type",
                            "key_usage_filter",
                            "ext_key_usage_filter_type",
                            "ext_key_usage_filter",
                            "logfile",
                            "logfile_severity",
                            "logfile_append"};

class OsslScardCfgEnvTest : public ::testing::Test {
protected:
    OsslScardCfgEnvTest() {
        for (const char* key : keys)
            clean_.push_back(std::make_unique<EnvVar>(std::string(prefix) + key, std::nullopt));
    }

    /// Loads a new configuration with one variable set. @return the log lines
    Lines load(const std::string& key, const std::string& value) {
        const EnvVar variable(prefix + key, value);
        const LogCapture log;
        cfg = std::make_unique<OsslScardCfgImp>(Cfg::capi);
        cfg->load_from_env(prefix);
        return log.lines();
    }

    static std::string dump(const Cfg& cfg) {
        std::vector<char> buffer(4000000);
        return cfg.dump_settings(buffer.data(), buffer.size());
    }

    std::unique_ptr<OsslScardCfgImp> cfg = std::make_unique<OsslScardCfgImp>(Cfg::capi);

private:
    std::vector<std::unique_ptr<EnvVar>> clean_;
};

TEST_F(OsslScardCfgEnvTest, KeysAreListedInTheOrderOfReading) {
    Lines listed;
    for (const EnvKey& key : list_env_keys())
        listed.push_back(key.key);
    EXPECT_EQ(listed, Lines(std::begin(keys), std::end(keys)));
    EXPECT_EQ(list_env_keys().front().value, EnvValue::back_end);
    EXPECT_EQ(list_env_keys()[13].setting, "xkuse_nid_filter");
    EXPECT_EQ(list_back_ends(), (Lines{"capi", "pkcs11", "capi_store"}));
}

TEST_F(OsslScardCfgEnvTest, NothingChangesAndNothingIsLoggedWithoutVariables) {
    const LogCapture log;
    const std::string before = dump(*cfg);
    cfg->load_from_env(prefix);
    EXPECT_EQ(dump(*cfg), before);
    EXPECT_EQ(log.lines(), Lines());
}

TEST_F(OsslScardCfgEnvTest, EmptyVariablesChangeNothing) {
    std::vector<std::unique_ptr<EnvVar>> empty;
    for (const char* key : keys)
        empty.push_back(std::make_unique<EnvVar>(std::string(prefix) + key, ""));
    const LogCapture log;
    const std::string before = dump(*cfg);
    cfg->load_from_env(prefix);
    EXPECT_EQ(dump(*cfg), before);
    EXPECT_EQ(log.lines(), Lines());
}

TEST_F(OsslScardCfgEnvTest, AllSeventeenVariablesAreAppliedAndLoggedInOrder) {
    const char* const values[] = {"pkcs11", "a b",   "csp", "1",    "p11engine", "p11module",
                                  "engine", "store", "key", "cert", "1",         "0x80",
                                  "2",      "1.2.3", "log", "63",   "1"};
    std::vector<std::unique_ptr<EnvVar>> variables;
    for (std::size_t i = 0; i < std::size(keys); ++i)
        variables.push_back(std::make_unique<EnvVar>(std::string(prefix) + keys[i], values[i]));
    const LogCapture log;
    cfg->load_from_env(prefix);
    EXPECT_EQ(
        log.lines(),
        (Lines{"<debug> env: crypto_if=pkcs11", "<debug> env: capi_openssl_engine_dll=a b",
               "<debug> env: capi_csp_name=csp", "<debug> env: capi_key_type=KEYEXCHANGE",
               "<debug> env: pkcs11_openssl_engine_dll=p11engine", "<debug> env: pkcs11_module_dll=p11module",
               "<debug> env: capi_store_openssl_engine_dll=engine",
               "<debug> env: capi_store_cert_store_name=store", "<debug> env: priv_key_name=key",
               "<debug> env: cert_name=cert", "<debug> env: key_usage_filter_type=exact",
               "<debug> env: key_usage_filter=digital_signature",
               "<debug> env: ext_key_usage_filter_type=exact_none", "<debug> env: ext_key_usage_filter=1.2.3",
               "<debug> env: logfile=log", "<debug> env: log_severity=trace|debug|info|warn|error|fatal",
               "<debug> env: log_append=true"}));
    EXPECT_EQ(dump(*cfg), "configuration settings:\n"
                          "  crypto_if=pkcs11\n"
                          "  capi_openssl_engine_dll=a b\n"
                          "  capi_csp_name=csp\n"
                          "  capi_key_type=KEYEXCHANGE\n"
                          "  pkcs11_openssl_engine_dll=p11engine\n"
                          "  pkcs11_module_dll=p11module\n"
                          "  capi_store_openssl_engine_dll=engine\n"
                          "  capi_store_cert_store_name=store\n"
                          "  priv_key_name=key\n"
                          "  cert_name=cert\n"
                          "  kuse_filter_type=exact\n"
                          "  kuse_filter=digital_signature\n"
                          "  xkuse_filter_type=exact_none\n"
                          "  xkuse_nid_filter=1.2.3\n"
                          "  logfile=log\n"
                          "  logfile_severity=trace|debug|info|warn|error|fatal\n"
                          "  logfile_append=true\n");
}

TEST_F(OsslScardCfgEnvTest, BackEndNamesAreMatchedExactly) {
    const struct {
        const char* text;
        unsigned int value;
        const char* name;
    } rows[] = {{"capi", 1, "capi"},      {"pkcs11", 2, "pkcs11"},  {"capi_store", 3, "capi_store"},
                {"PKCS11", 0, "unknown"}, {"capi ", 0, "unknown"},  {"capi_stor", 0, "unknown"},
                {"2", 0, "unknown"},      {" pkcs11", 0, "unknown"}};
    for (const auto& row : rows) {
        EXPECT_EQ(load("crypto_if", row.text), Lines{std::string("<debug> env: crypto_if=") + row.name});
        EXPECT_EQ(static_cast<unsigned int>(cfg->get_crypto_if()), row.value) << row.text;
    }
}

TEST_F(OsslScardCfgEnvTest, NumbersAreReadInAnyBaseAndInvalidTextIsZero) {
    const struct {
        const char* text;
        unsigned int value;
    } rows[] = {{"7", 7},
                {"0x3c", 60},
                {"0X3C", 60},
                {"074", 60},
                {"08", 0},
                {"  12", 12},
                {"+5", 5},
                {"12abc", 12},
                {"abc", 0},
                {"0x", 0},
                {"-0", 0},
                {"-", 0},
                {"-abc", 0},
                {"--5", 0},
                {"-+5", 0},
                {"- 5", 0},
                {"+-5", 0},
                {"4294967295", 4294967295U},
                {"4294967296", 4294967295U},
                {"99999999999999999999999", 4294967295U},
                {"1.9", 1}};
    const struct {
        const char* key;
        unsigned int (Cfg::*get)() const;
    } settings[] = {{"capi_key_type", &Cfg::get_capi_key_type},
                    {"key_usage_filter_type", &Cfg::get_kuse_filter_type},
                    {"key_usage_filter", &Cfg::get_kuse_filter},
                    {"ext_key_usage_filter_type", &Cfg::get_xkuse_filter_type},
                    {"logfile_severity", &Cfg::get_logfile_severity}};
    for (const auto& setting : settings) {
        for (const auto& row : rows) {
            EXPECT_EQ(load(setting.key, row.text).size(), 1U);
            EXPECT_EQ((*cfg.*setting.get)(), row.value) << setting.key << "=" << row.text;
        }
    }
}

TEST_F(OsslScardCfgEnvTest, NegativeNumbersWrapAround32Bits) {
    const struct {
        const char* text;
        unsigned int value;
    } rows[] = {{"-1", 4294967295U},
                {"-2", 4294967294U},
                {" -2", 4294967294U},
                {"-0x10", 4294967280U},
                {"-3 and more", 4294967293U},
                {"-4294967295", 1},
                {"-4294967296", 4294967295U},
                {"-18446744073709551614", 4294967295U},
                {"-18446744073709551615", 4294967295U},
                {"-99999999999999999999999", 4294967295U}};
    for (const auto& row : rows) {
        load("key_usage_filter", row.text);
        EXPECT_EQ(cfg->get_kuse_filter(), row.value) << row.text;
    }
    load("logfile_append", "-1");
    EXPECT_TRUE(cfg->get_logfile_append());
}

TEST_F(OsslScardCfgEnvTest, NumbersAreLoggedByName) {
    const struct {
        const char* key;
        const char* text;
        const char* line;
    } rows[] = {
        {"capi_key_type", "2", "capi_key_type=SIGNATURE"},
        {"capi_key_type", "7", "capi_key_type=unknown [val=7]"},
        {"key_usage_filter_type", "0", "key_usage_filter_type=all"},
        {"key_usage_filter_type", "3", "key_usage_filter_type="},
        {"key_usage_filter", "0", "key_usage_filter=none"},
        {"key_usage_filter", "0x8001", "key_usage_filter=encipher_only|decipher_only"},
        {"ext_key_usage_filter_type", "1", "ext_key_usage_filter_type=exact"},
        {"logfile_severity", "0", "log_severity=none"},
        {"logfile_severity", "0x3c", "log_severity=info|warn|error|fatal"},
        {"logfile_severity", "65535", "log_severity=all"},
        {"logfile_append", "0", "log_append=false"},
        {"logfile_append", "abc", "log_append=false"},
        {"logfile_append", "2", "log_append=true"},
        {"logfile_append", "true", "log_append=false"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(load(row.key, row.text), Lines{std::string("<debug> env: ") + row.line});
}

TEST_F(OsslScardCfgEnvTest, AppendingCanBeTurnedOff) {
    const EnvVar variable(std::string(prefix) + "logfile_append", "0");
    cfg->enable_logfile_append();
    cfg->load_from_env(prefix);
    EXPECT_FALSE(cfg->get_logfile_append());
}

TEST_F(OsslScardCfgEnvTest, TextsAreStoredUnchanged) {
    const std::string values[] = {" ", "\xff\xfe no UTF-8", "a=b;c%20", std::string(32000, 'v')};
    const struct {
        const char* key;
        const char* (Cfg::*get)() const;
    } settings[] = {{"capi_openssl_engine_dll", &Cfg::get_capi_openssl_engine_dll},
                    {"capi_csp_name", &Cfg::get_capi_csp_name},
                    {"pkcs11_openssl_engine_dll", &Cfg::get_pkcs11_openssl_engine_dll},
                    {"pkcs11_module_dll", &Cfg::get_pkcs11_module_dll},
                    {"capi_store_openssl_engine_dll", &Cfg::get_capi_store_openssl_engine_dll},
                    {"capi_store_cert_store_name", &Cfg::get_capi_store_cert_store_name},
                    {"priv_key_name", &Cfg::get_priv_key_name},
                    {"cert_name", &Cfg::get_cert_name},
                    {"ext_key_usage_filter", &Cfg::get_xkuse_nid_filter},
                    {"logfile", &Cfg::get_logfile}};
    for (const auto& setting : settings) {
        for (const std::string& value : values) {
            EXPECT_EQ(load(setting.key, value),
                      Lines{std::string("<debug> env: ") + setting.key + "=" + value});
            EXPECT_EQ((*cfg.*setting.get)(), value) << setting.key;
        }
    }
}

TEST_F(OsslScardCfgEnvTest, SettingNamesOfTheDumpAreNotVariableNames) {
    for (const char* key : {"kuse_filter_type", "kuse_filter", "xkuse_filter_type", "xkuse_nid_filter",
                            "log_severity", "log_append"})
        EXPECT_EQ(load(key, "1"), Lines()) << key;
}

TEST_F(OsslScardCfgEnvTest, OnlyVariablesWithThePrefixAreRead) {
    const EnvVar other("other_cert_name", "mine");
    const LogCapture log;
    cfg->load_from_env(prefix);
    EXPECT_STREQ(cfg->get_cert_name(), "");
    cfg->load_from_env("other_");
    EXPECT_STREQ(cfg->get_cert_name(), "mine");
    EXPECT_EQ(log.lines(), Lines{"<debug> env: cert_name=mine"});
}

TEST_F(OsslScardCfgEnvTest, SuppressedLinesDoNotReadTheConfiguration) {
    std::vector<std::unique_ptr<EnvVar>> variables;
    for (const char* key : keys)
        variables.push_back(std::make_unique<EnvVar>(std::string(prefix) + key, "1"));
    ClientCfg silent;
    {
        const LogCapture log(60);
        load_settings_from_env(silent, prefix);
        EXPECT_EQ(log.lines(), Lines());
    }
    EXPECT_EQ(silent.num_reads, 0U);
    EXPECT_STREQ(silent.get_cert_name(), "1");
    ClientCfg logged;
    const LogCapture log(62);
    load_settings_from_env(logged, prefix);
    EXPECT_EQ(log.lines().size(), std::size(keys));
    EXPECT_EQ(logged.num_reads, std::size(keys));
}

TEST_F(OsslScardCfgEnvTest, NullTextOfAClientConfigurationIsLoggedAsEmpty) {
    ClientCfg client;
    client.has_texts = false;
    const EnvVar variable(std::string(prefix) + "cert_name", "mine");
    const LogCapture log(62);
    load_settings_from_env(client, prefix);
    EXPECT_EQ(log.lines(), Lines{"<debug> env: cert_name="});
}

TEST_F(OsslScardCfgEnvTest, LinesAreLoggedAtSeverityDebugOnly) {
    const EnvVar variable(std::string(prefix) + "cert_name", "mine");
    const LogCapture log(60);
    cfg->load_from_env(prefix);
    EXPECT_STREQ(cfg->get_cert_name(), "mine");
    EXPECT_EQ(log.lines(), Lines());
}

} // namespace
} // namespace Kes::test
