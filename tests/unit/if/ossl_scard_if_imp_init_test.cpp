#include <algorithm>
#include <fstream>

#include "support/client_cfg.h"
#include "support/core_fixture.h"
#include "utils/error.h"
#include "utils/logger.h"

namespace Kes::test {
namespace {

class OsslScardIfImpInitTest : public ScardTest {
protected:
    OsslScardCfg& config_with_log(const std::string& name) {
        OsslScardCfg& cfg = make_config();
        cfg.set_logfile(name.c_str());
        return cfg;
    }

    Lines logged(const std::string& name = "log") const { return log_lines(dir.file(name)); }

    std::size_t files() const {
        const std::filesystem::directory_iterator entries(dir.path());
        return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
    }

    static std::string init(OsslScardCfg* cfg) {
        const int status = scard().init(cfg);
        return outcome(status, last_error());
    }

    TempDir dir;
    ClientCfg client;
};

TEST_F(OsslScardIfImpInitTest, LogFileStartsWithTheLinesBufferedSinceTheStart) {
    ASSERT_EQ(init(&config_with_log(dir.file("log"))), "0");
    const Lines lines = logged();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.front(), "<info> using OpenSSL smart card interface version 4");
    EXPECT_THAT(lines, testing::Contains("<info> init done."));
}

TEST_F(OsslScardIfImpInitTest, EmptyOrBlankNameOpensNoLogFile) {
    const CurrentFolder folder(dir.path());
    for (const char* name : {"", " "}) {
        EXPECT_EQ(init(&config_with_log(name)), "0");
        EXPECT_EQ(scard().read_scard(), 0);
        scard().destroy();
    }
    EXPECT_EQ(files(), 0U);
}

TEST_F(OsslScardIfImpInitTest, NullTextsOfAClientConfigurationAreTreatedAsEmpty) {
    client.has_texts = false;
    EXPECT_EQ(init(&client), "0");
    EXPECT_THAT(script().calls(), testing::Contains("PKCS11_CTX_load(ctx1, )"));
    ASSERT_EQ(scard().read_scard(), 0);
    ASSERT_EQ(scard().set_pin("1234"), 0);
    std::size_t count = 0;
    ASSERT_EQ(scard().discover_keys(&count), 0);
    EXPECT_EQ(scard().set_key(std::size_t{0}), 0);
    ASSERT_EQ(scard().notify_config_done(), 0);
    EXPECT_EQ(outcome(scard().ossl_load(), last_error()), "0");
}

TEST_F(OsslScardIfImpInitTest, NullDumpOfAClientConfigurationIsOmittedFromTheLog) {
    client.has_texts = false;
    ASSERT_EQ(init(&client), "0");
    Logger::instance().register_sink(dir.file("log"), false);
    const Lines lines = logged();
    const auto dump = std::find(lines.begin(), lines.end(), "<info> OpenSSL smart card manager settings:");
    EXPECT_EQ(Lines(dump, lines.end()),
              (Lines{"<info> OpenSSL smart card manager settings:", "additional settings:",
                     "  cfg_state=initialized", "  is_pin_required=false", "  pin specified=false",
                     "  need_ossl_reload=false", "<info> init done."}));
}

TEST_F(OsslScardIfImpInitTest, FailureToOpenTheLogFileLeavesTheLibraryInitialised) {
    const std::string name = dir.file("missing/log");
    EXPECT_EQ(init(&config_with_log(name)),
              "1 logger:90 Kes::Logger::register_sink(): error opening logfile '" + name +
                  "': val=12 (open_failed)");
    EXPECT_EQ(state(), "initialized");
    EXPECT_EQ(scard().read_scard(), 0);
    EXPECT_EQ(last_error(), "");
    std::size_t count = 0;
    ASSERT_EQ(scard().set_pin("1234"), 0);
    EXPECT_EQ(scard().discover_keys(&count), 0);
}

TEST_F(OsslScardIfImpInitTest, FailureToOpenTheLogFileIsNotLogged) {
    EXPECT_EQ(init(&config_with_log(dir.file("log"))), "0");
    scard().get_config_used()->set_logfile(dir.file("missing/log").c_str());
    EXPECT_THAT(init(nullptr), testing::HasSubstr("error opening logfile"));
    EXPECT_THAT(logged(), testing::Not(testing::Contains(testing::HasSubstr("error opening"))));
}

TEST_F(OsslScardIfImpInitTest, FailedInitWritesItsReasonToTheConfiguredLogFile) {
    script().fail_function("PKCS11_CTX_load");
    const std::string error =
        "libp11_helper:86 Kes::Libp11Init::Libp11Init(): PKCS11_CTX_load() failed to load "
        "PKCS#11 library 'module.so': rc=7" +
        raised_by("PKCS11_CTX_load") + missing_module_detail("module.so");
    ASSERT_EQ(scard().init(&config_with_log(dir.file("log"))), 1);
    EXPECT_THAT(read_text(dir.file("log")), testing::EndsWith(": " + error + "\n"));
    EXPECT_EQ(last_error(), error);
    EXPECT_EQ(state(), "uninitialized");
}

TEST_F(OsslScardIfImpInitTest, FailedInitCanBeRepeatedAndTruncatesTheLogFile) {
    script().fail_function("PKCS11_CTX_load");
    OsslScardCfg& cfg = config_with_log(dir.file("log"));
    ASSERT_EQ(scard().init(&cfg), 1);
    script().clear_failures();
    ASSERT_EQ(scard().init(&cfg), 0);
    EXPECT_EQ(logged(), Lines()) << "what came before was written already, and the rest is discarded";
    ASSERT_EQ(scard().read_scard(), 0);
    EXPECT_EQ(logged().front(), "<info> called: Kes::OsslScardIfImp::read_scard()");
}

TEST_F(OsslScardIfImpInitTest, RepeatedInitTruncatesTheLogFileOrAppendsToIt) {
    OsslScardCfg& cfg = config_with_log(dir.file("log"));
    ASSERT_EQ(scard().init(&cfg), 0);
    EXPECT_EQ(scard().init(&cfg), 1);
    EXPECT_EQ(logged(), Lines());
    scard().get_config_used()->enable_logfile_append();
    scard().get_version();
    EXPECT_EQ(scard().init(&cfg), 1);
    const Lines lines = logged();
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(Lines(lines.begin(), lines.begin() + 4),
              (Lines{"<info> called: Kes::OsslScardIfImp::get_config_used()",
                     "<info> called: Kes::OsslScardIfImp::get_version()",
                     "<info> called: Kes::OsslScardIfImp::init()",
                     "<error> operation not allowed in current state (cfg_state=initialized): val=6 "
                     "(invalid_state)"}));
    EXPECT_THAT(lines[4], testing::MatchesRegex("\\[\\[\\[ ------ restart logger at "
                                                "....-..-.. ..:..:..\\.... ------\\]\\]\\]"));
}

TEST_F(OsslScardIfImpInitTest, ConfiguredSeverityAppliesFromInit) {
    OsslScardCfg& cfg = config_with_log(dir.file("log"));
    cfg.set_logfile_severity(16);
    ASSERT_EQ(init(&cfg), "0");
    const std::size_t before = logged().size();
    EXPECT_GT(before, 5U) << "the lines of before are kept, at the severities of before";
    ASSERT_EQ(scard().read_scard(), 0);
    EXPECT_EQ(logged().size(), before);
    ASSERT_EQ(scard().ossl_load(), 1);
    EXPECT_EQ(
        logged().back(),
        "<error> operation not allowed in current state (cfg_state=configuring): val=6 (invalid_state)");
}

TEST_F(OsslScardIfImpInitTest, EnvironmentCanSetTheLogFile) {
    const EnvVar name("ossl_scard_cfg_logfile", dir.file("from_env"));
    const EnvVar severity("ossl_scard_cfg_logfile_severity", "63");
    const EnvVar append("ossl_scard_cfg_logfile_append", "1");
    ASSERT_EQ(init(&make_config()), "0");
    EXPECT_THAT(logged("from_env").front(), testing::HasSubstr("restart logger"));
    scard().read_scard();
    ASSERT_EQ(scard().notify_config_done(), 0);
    EXPECT_THAT(logged("from_env"), testing::Contains("<debug> env: log_append=true"));
}

TEST_F(OsslScardIfImpInitTest, InitKeepsTheOldConfigurationWhenTheNewOneCannotBeCloned) {
    ClientCfg unclonable;
    unclonable.is_clonable = false;
    OsslScardCfg* before = scard().get_config_used();
    before->set_logfile("");
    EXPECT_EQ(init(&unclonable),
              "1 ossl_scard_mgr:116 Kes::OsslScardMgr::init(): cfg cannot be cloned: val=2 (null_pointer)");
    EXPECT_EQ(state(), "uninitialized");
    EXPECT_EQ(scard().get_config_used(), before);
}

TEST_F(OsslScardIfImpInitTest, NullConfigurationFailsAndOpensTheDefaultLogFile) {
    scard().get_config_used()->set_logfile(dir.file("log").c_str());
    const std::string error =
        "ossl_scard_mgr:112 Kes::OsslScardMgr::init(): cfg is a null pointer: val=3 (bad_argument)";
    EXPECT_EQ(init(nullptr), "1 " + error);
    EXPECT_EQ(state(), "uninitialized");
    EXPECT_EQ(logged().back(), "<info> called: Kes::OsslScardIfImp::get_last_error_msg()");
    EXPECT_EQ(logged().at(logged().size() - 2), "<error> " + error);
}

TEST_F(OsslScardIfImpInitTest, InitAcceptsAConfigurationClassOfTheClient) {
    client.set_pkcs11_module_dll("client.so");
    client.set_logfile(dir.file("log").c_str());
    client.set_logfile_severity(63);
    const EnvVar variable("ossl_scard_cfg_pkcs11_openssl_engine_dll", "env.so");
    ASSERT_EQ(init(&client), "0");
    EXPECT_NE(scard().get_config_used(), &client);
    EXPECT_STREQ(scard().get_config_used()->get_pkcs11_openssl_engine_dll(), "env.so");
    EXPECT_STREQ(client.get_pkcs11_openssl_engine_dll(), "") << "the client's own object is left alone";
    EXPECT_EQ(script().calls().back(), "PKCS11_CTX_load(ctx1, client.so)");
    EXPECT_THAT(logged(),
                testing::IsSupersetOf({"<info> OpenSSL smart card manager settings:", "the client's own dump",
                                       "additional settings:", "  cfg_state=initialized"}));
    read_and_discover();
    EXPECT_EQ(scard().set_key(std::size_t{0}), 0);
    EXPECT_STREQ(scard().get_config_used()->get_priv_key_name(), private_uri);
    EXPECT_EQ(scard().notify_config_done(), 0);
    EXPECT_THAT(logged(), testing::Contains("<debug> env: pkcs11_openssl_engine_dll=env.so"));
    EXPECT_EQ(scard().ossl_load(), 0) << last_error();
}

TEST_F(OsslScardIfImpInitTest, NullLogFileNameOfAClientConfigurationOpensNoFile) {
    client.set_pkcs11_module_dll("client.so");
    client.has_logfile = false;
    script().fail_function("PKCS11_CTX_load");
    EXPECT_EQ(init(&client), "1 libp11_helper:86 Kes::Libp11Init::Libp11Init(): PKCS11_CTX_load() failed to "
                             "load PKCS#11 library 'client.so': rc=7" +
                                 raised_by("PKCS11_CTX_load") + missing_module_detail("client.so"));
    EXPECT_EQ(state(), "uninitialized");
    script().clear_failures();
    EXPECT_EQ(init(&client), "0");
    EXPECT_EQ(state(), "initialized");
    EXPECT_EQ(files(), 0U);
}

TEST_F(OsslScardIfImpInitTest, ExceptionInACloneOfTheClientFailsInitAndKeepsTheConfiguration) {
    scard().get_config_used()->set_logfile("");
    const OsslScardCfg* used = scard().get_config_used();
    client.on_clone = [] { throw 42; };
    EXPECT_EQ(init(&client), "255 unhandled exception");
    client.on_clone = [] { throw std::runtime_error("client says no"); };
    EXPECT_EQ(init(&client), "1 client says no");
    EXPECT_EQ(state(), "uninitialized");
    EXPECT_EQ(scard().get_config_used(), used);
    client.on_clone = [] {};
    EXPECT_EQ(init(&client), "0");
}

TEST_F(OsslScardIfImpInitTest, ExceptionInAClientSettingWhileTheLogOpensFailsInit) {
    client.set_logfile(dir.file("log").c_str());
    client.on_get_severity = [] { throw std::runtime_error("no severity"); };
    EXPECT_EQ(init(&client), "1 no severity");
    EXPECT_EQ(files(), 0U);
    EXPECT_EQ(state(), "initialized");
}

TEST_F(OsslScardIfImpInitTest, OtherExceptionsWhileTheLogOpensPropagateFromInit) {
    client.set_logfile(dir.file("log").c_str());
    client.on_get_severity = [] { throw 42; };
    EXPECT_THROW(scard().init(&client), int);
}

TEST_F(OsslScardIfImpInitTest, OnlyInfoAndHigherSeveritiesAreLoggedBeforeInit) {
    OsslScardCfg& cfg = config_with_log(dir.file("log"));
    cfg.set_logfile_severity(63);
    for (std::uint32_t bit = 1; bit <= 32; bit *= 2)
        log_line(static_cast<Severity>(bit), "before init");
    ASSERT_EQ(init(&cfg), "0");
    for (std::uint32_t bit = 1; bit <= 32; bit *= 2)
        log_line(static_cast<Severity>(bit), "after init");
    Lines found;
    for (const std::string& line : logged())
        if (line.ends_with("> before init") || line.ends_with("> after init")) found.push_back(line);
    EXPECT_EQ(found,
              (Lines{"<info> before init", "<warn> before init", "<error> before init", "<fatal> before init",
                     "<trace> after init", "<debug> after init", "<info> after init", "<warn> after init",
                     "<error> after init", "<fatal> after init"}));
}

TEST_F(OsslScardIfImpInitTest, LinesAfterAnInitWithoutALogFileAreDiscarded) {
    script().fail_function("PKCS11_CTX_load");
    ASSERT_EQ(scard().init(&make_config()), 1);
    script().clear_failures();
    scard().get_version();
    ASSERT_EQ(scard().init(&config_with_log(dir.file("log"))), 0);
    const Lines lines = logged();
    EXPECT_EQ(lines.front(), "<info> using OpenSSL smart card interface version 4");
    EXPECT_THAT(lines, testing::Contains("<info> called: Kes::OsslScardIfImp::init()").Times(1));
    EXPECT_THAT(lines, testing::Not(testing::Contains("<info> called: Kes::OsslScardIfImp::get_version()")));
    EXPECT_THAT(lines, testing::Not(testing::Contains("<info> init done.")));
}

TEST_F(OsslScardIfImpInitTest, DestroyClosesTheLog) {
    ASSERT_EQ(init(&config_with_log(dir.file("log"))), "0");
    scard().destroy();
    EXPECT_FALSE(Logger::exists());
    const Lines before = logged();
    EXPECT_EQ(before.back(), "<info> OpenSSL smart card manager stopped.");
    log_error("after destroy");
    EXPECT_EQ(logged(), before);
}

TEST_F(OsslScardIfImpInitTest, FailureToOpenTheLogFileReplacesAnUnhandledException) {
    const std::string name = dir.file("missing/log");
    script().fail_function("PKCS11_CTX_new", {.throws_int = true});
    EXPECT_EQ(init(&config_with_log(name)),
              "1 logger:90 Kes::Logger::register_sink(): error opening logfile '" + name +
                  "': val=12 (open_failed)");
    EXPECT_EQ(state(), "uninitialized");
}

} // namespace
} // namespace Kes::test
