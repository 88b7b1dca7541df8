#include "base/ossl_scard_cfg_imp.h"

#include <functional>
#include <iostream>
#include <limits>

#include "support/core_fixture.h"

namespace Kes::test {
namespace {

using Cfg = OsslScardCfg;

constexpr const char* default_dump = "configuration settings:\n"
                                     "  crypto_if=capi\n"
                                     "  capi_openssl_engine_dll=.\\capi.dll\n"
                                     "  capi_csp_name=Microsoft Base Smart Card Crypto Provider\n"
                                     "  capi_key_type=SIGNATURE\n"
                                     "  pkcs11_openssl_engine_dll=.\\pkcs11.dll\n"
                                     "  pkcs11_module_dll=itp11.dll\n"
                                     "  capi_store_openssl_engine_dll=.\\capi.dll\n"
                                     "  capi_store_cert_store_name=MY\n"
                                     "  priv_key_name=\n"
                                     "  cert_name=\n"
                                     "  kuse_filter_type=all\n"
                                     "  kuse_filter=none\n"
                                     "  xkuse_filter_type=all\n"
                                     "  xkuse_nid_filter=\n"
                                     "  logfile=ossl_scard.log\n"
                                     "  logfile_severity=info|warn|error|fatal\n"
                                     "  logfile_append=false\n";

struct TextSetting {
    const char* label; // in the dump
    void (Cfg::*set)(const char*);
    const char* (Cfg::*get)() const;
    const char* initial;
};

const TextSetting text_settings[] = {
    {"capi_openssl_engine_dll", &Cfg::set_capi_openssl_engine_dll, &Cfg::get_capi_openssl_engine_dll,
     ".\\capi.dll"},
    {"capi_csp_name", &Cfg::set_capi_csp_name, &Cfg::get_capi_csp_name,
     "Microsoft Base Smart Card Crypto Provider"},
    {"pkcs11_openssl_engine_dll", &Cfg::set_pkcs11_openssl_engine_dll, &Cfg::get_pkcs11_openssl_engine_dll,
     ".\\pkcs11.dll"},
    {"pkcs11_module_dll", &Cfg::set_pkcs11_module_dll, &Cfg::get_pkcs11_module_dll, "itp11.dll"},
    {"capi_store_openssl_engine_dll", &Cfg::set_capi_store_openssl_engine_dll,
     &Cfg::get_capi_store_openssl_engine_dll, ".\\capi.dll"},
    {"capi_store_cert_store_name", &Cfg::set_capi_store_cert_store_name, &Cfg::get_capi_store_cert_store_name,
     "MY"},
    {"priv_key_name", &Cfg::set_priv_key_name, &Cfg::get_priv_key_name, ""},
    {"cert_name", &Cfg::set_cert_name, &Cfg::get_cert_name, ""},
    {"xkuse_nid_filter", &Cfg::set_xkuse_nid_filter, &Cfg::get_xkuse_nid_filter, ""},
    {"logfile", &Cfg::set_logfile, &Cfg::get_logfile, "ossl_scard.log"},
};

struct NumberSetting {
    const char* label;
    void (Cfg::*set)(unsigned int);
    unsigned int (Cfg::*get)() const;
    unsigned int initial;
};

const NumberSetting number_settings[] = {
    {"capi_key_type", &Cfg::set_capi_key_type, &Cfg::get_capi_key_type, 2},
    {"kuse_filter_type", &Cfg::set_kuse_filter_type, &Cfg::get_kuse_filter_type, 0},
    {"kuse_filter", &Cfg::set_kuse_filter, &Cfg::get_kuse_filter, 0},
    {"xkuse_filter_type", &Cfg::set_xkuse_filter_type, &Cfg::get_xkuse_filter_type, 0},
    {"logfile_severity", &Cfg::set_logfile_severity, &Cfg::get_logfile_severity, 60},
};

class OsslScardCfgImpTest : public ::testing::Test {
protected:
    static std::string dump(const Cfg& cfg) {
        std::vector<char> buffer(100000, '#');
        return cfg.dump_settings(buffer.data(), buffer.size());
    }

    static std::string line_of(const Cfg& cfg, const std::string& label) {
        for (const std::string& line : split_lines(dump(cfg)))
            if (line.starts_with("  " + label + "=")) return line.substr(label.size() + 3);
        return "no such line";
    }

    static std::string description(const Cfg& cfg, unsigned int value) {
        std::array<char, 4096> buffer{};
        return cfg.get_crypto_if_description(static_cast<Cfg::CryptoIf>(value), buffer.data(), buffer.size());
    }

    OsslScardCfgImp cfg{Cfg::capi};
};

TEST_F(OsslScardCfgImpTest, StartsWithTheDefaults) {
    EXPECT_EQ(cfg.get_crypto_if(), Cfg::capi);
    for (const TextSetting& row : text_settings)
        EXPECT_STREQ((cfg.*row.get)(), row.initial) << row.label;
    for (const NumberSetting& row : number_settings)
        EXPECT_EQ((cfg.*row.get)(), row.initial) << row.label;
    EXPECT_FALSE(cfg.get_logfile_append());
    EXPECT_EQ(dump(cfg), default_dump);
}

TEST_F(OsslScardCfgImpTest, StartsWithTheBackEndOfTheConstructor) {
    EXPECT_EQ(OsslScardCfgImp(Cfg::pkcs11).get_crypto_if(), Cfg::pkcs11);
}

TEST_F(OsslScardCfgImpTest, DefinesTheNamesOfTheKnownProviders) {
    EXPECT_STREQ(OsslScardCfgImp::csp_base_smart_card, "Microsoft Base Smart Card Crypto Provider");
    EXPECT_STREQ(OsslScardCfgImp::csp_strong, "Microsoft Strong Cryptographic Provider");
    EXPECT_STREQ(OsslScardCfgImp::csp_it_solution, "IT Solution GmbH CSP");
}

TEST_F(OsslScardCfgImpTest, EachTextIsStoredUnchangedInItsOwnSetting) {
    const std::string values[] = {"plain", " ", "with;signs%\n\t", "\xff\xfe\x80 no UTF-8",
                                  std::string(10000, 'n')};
    for (const TextSetting& row : text_settings) {
        for (const std::string& value : values) {
            OsslScardCfgImp changed(Cfg::capi);
            (changed.*row.set)(value.c_str());
            EXPECT_EQ((changed.*row.get)(), value) << row.label;
            EXPECT_EQ(dump(changed).size(),
                      std::string(default_dump).size() + value.size() - std::string(row.initial).size());
            for (const TextSetting& other : text_settings)
                if (&other != &row) {
                    EXPECT_STREQ((changed.*other.get)(), other.initial) << row.label << other.label;
                }
        }
    }
}

TEST_F(OsslScardCfgImpTest, NullTextIsStoredAsEmpty) {
    for (const TextSetting& row : text_settings) {
        (cfg.*row.set)("before");
        (cfg.*row.set)(nullptr);
        EXPECT_STREQ((cfg.*row.get)(), "") << row.label;
        EXPECT_EQ(line_of(cfg, row.label), "") << row.label;
    }
}

TEST_F(OsslScardCfgImpTest, TextStaysValidUntilItsSettingChanges) {
    cfg.set_cert_name("the name of a certificate, too long for a short string");
    const char* name = cfg.get_cert_name();
    cfg.set_priv_key_name("something else that is long enough to need memory");
    EXPECT_STREQ(name, "the name of a certificate, too long for a short string");
}

TEST_F(OsslScardCfgImpTest, SettingCanBeSetToItsOwnValue) {
    cfg.set_cert_name("the name of a certificate, too long for a short string");
    cfg.set_cert_name(cfg.get_cert_name());
    EXPECT_STREQ(cfg.get_cert_name(), "the name of a certificate, too long for a short string");
}

TEST_F(OsslScardCfgImpTest, EachNumberIsStoredUnchangedInItsOwnSetting) {
    for (const NumberSetting& row : number_settings) {
        for (const unsigned int value : {0U, 1U, 7U, std::numeric_limits<unsigned int>::max()}) {
            OsslScardCfgImp changed(Cfg::capi);
            (changed.*row.set)(value);
            EXPECT_EQ((changed.*row.get)(), value) << row.label;
            for (const NumberSetting& other : number_settings)
                if (&other != &row) {
                    EXPECT_EQ((changed.*other.get)(), other.initial) << row.label << other.label;
                }
        }
    }
}

TEST_F(OsslScardCfgImpTest, AppendingIsTurnedOnAndOff) {
    cfg.enable_logfile_append();
    cfg.enable_logfile_append();
    EXPECT_TRUE(cfg.get_logfile_append());
    EXPECT_EQ(line_of(cfg, "logfile_append"), "true");
    cfg.disable_logfile_append();
    EXPECT_FALSE(cfg.get_logfile_append());
}

TEST_F(OsslScardCfgImpTest, UnknownBackEndIsStoredAndShownAsUnknown) {
    const struct {
        unsigned int value;
        const char* name;
    } rows[] = {{1, "capi"}, {2, "pkcs11"}, {3, "capi_store"}, {0, "unknown"}, {7, "unknown"}};
    for (const auto& row : rows) {
        cfg.set_crypto_if(static_cast<Cfg::CryptoIf>(row.value));
        EXPECT_EQ(static_cast<unsigned int>(cfg.get_crypto_if()), row.value);
        EXPECT_EQ(line_of(cfg, "crypto_if"), row.name);
        EXPECT_EQ(crypto_if_name(cfg.get_crypto_if()), row.name);
    }
}

TEST_F(OsslScardCfgImpTest, DumpShowsNumbersByName) {
    const struct {
        const char* label;
        void (Cfg::*set)(unsigned int);
        unsigned int value;
        const char* text;
    } rows[] = {
        {"capi_key_type", &Cfg::set_capi_key_type, 1, "KEYEXCHANGE"},
        {"capi_key_type", &Cfg::set_capi_key_type, 2, "SIGNATURE"},
        {"capi_key_type", &Cfg::set_capi_key_type, 0, "unknown [val=0]"},
        {"capi_key_type", &Cfg::set_capi_key_type, 4294967295U, "unknown [val=4294967295]"},
        {"kuse_filter_type", &Cfg::set_kuse_filter_type, 1, "exact"},
        {"kuse_filter_type", &Cfg::set_kuse_filter_type, 2, "exact_none"},
        {"kuse_filter_type", &Cfg::set_kuse_filter_type, 3, ""},
        {"kuse_filter", &Cfg::set_kuse_filter, 0x8081, "encipher_only|digital_signature|decipher_only"},
        {"kuse_filter", &Cfg::set_kuse_filter, 0x4000, ""},
        {"xkuse_filter_type", &Cfg::set_xkuse_filter_type, 2, "exact_none"},
        {"xkuse_filter_type", &Cfg::set_xkuse_filter_type, 9, ""},
        {"logfile_severity", &Cfg::set_logfile_severity, 0, "none"},
        {"logfile_severity", &Cfg::set_logfile_severity, 63, "trace|debug|info|warn|error|fatal"},
        {"logfile_severity", &Cfg::set_logfile_severity, 65535, "all"},
        {"logfile_severity", &Cfg::set_logfile_severity, 64, ""},
    };
    for (const auto& row : rows) {
        (cfg.*row.set)(row.value);
        EXPECT_EQ(line_of(cfg, row.label), row.text) << row.label << row.value;
    }
}

TEST_F(OsslScardCfgImpTest, DescriptionsShowTheCurrentNames) {
    cfg.set_capi_csp_name("My CSP");
    cfg.set_pkcs11_module_dll("my module.so");
    EXPECT_EQ(description(cfg, 1), "capi (MS CryptoAPI with csp 'My CSP')");
    EXPECT_EQ(description(cfg, 2), "pkcs11 (PKCS#11 with module 'my module.so')");
    EXPECT_EQ(description(cfg, 3), "capi_store (MS CryptoAPI using Windows Cert Store)");
    EXPECT_EQ(description(cfg, 0), "");
    EXPECT_EQ(description(cfg, 7), "");
}

/// Calls a text operation with a buffer that is longer than the size passed, and checks that the bytes beyond
/// that size are not changed.
void expect_truncation(const std::function<char*(char*, size_t)>& operation, const std::string& whole) {
    for (const std::size_t size : {std::size_t{1}, std::size_t{2}, whole.size() - 1, whole.size(),
                                   whole.size() + 1, whole.size() + 2}) {
        std::vector<char> buffer(whole.size() + 16, '#');
        EXPECT_EQ(operation(buffer.data(), size), buffer.data());
        const std::string expected = whole.substr(0, size - 1);
        EXPECT_EQ(std::string(buffer.data()), expected) << size;
        EXPECT_EQ(buffer[size], '#') << size;
    }
    char untouched = '#';
    EXPECT_EQ(operation(&untouched, 0), &untouched);
    EXPECT_EQ(untouched, '#');
}

TEST_F(OsslScardCfgImpTest, TextsAreTruncatedToTheBufferAndAlwaysTerminated) {
    expect_truncation([&](char* buffer, size_t size) { return cfg.dump_settings(buffer, size); },
                      default_dump);
    expect_truncation(
        [&](char* buffer, size_t size) {
            return cfg.get_crypto_if_description(Cfg::capi_store, buffer, size);
        },
        "capi_store (MS CryptoAPI using Windows Cert Store)");
    cfg.set_pkcs11_module_dll(std::string(10000, 'm').c_str());
    expect_truncation(
        [&](char* buffer, size_t size) { return cfg.get_crypto_if_description(Cfg::pkcs11, buffer, size); },
        "pkcs11 (PKCS#11 with module '" + std::string(10000, 'm') + "')");
}

TEST_F(OsslScardCfgImpTest, EmptyDescriptionFitsTheSmallestBuffer) {
    char buffer = '#';
    EXPECT_EQ(cfg.get_crypto_if_description(static_cast<Cfg::CryptoIf>(0), &buffer, 1), &buffer);
    EXPECT_EQ(buffer, '\0');
}

TEST_F(OsslScardCfgImpTest, CloneHasEverySettingAndIsIndependent) {
    for (const TextSetting& row : text_settings)
        (cfg.*row.set)(row.label);
    unsigned int number = 100;
    for (const NumberSetting& row : number_settings)
        (cfg.*row.set)(number++);
    cfg.set_crypto_if(static_cast<Cfg::CryptoIf>(7));
    cfg.enable_logfile_append();

    const OsslScardCfgPtr copy(cfg.clone());
    EXPECT_EQ(dump(*copy), dump(cfg));
    for (const NumberSetting& row : number_settings)
        EXPECT_EQ(((*copy).*row.get)(), (cfg.*row.get)()) << row.label;

    const std::string before = dump(cfg);
    copy->set_logfile("other");
    copy->disable_logfile_append();
    copy->set_capi_key_type(1);
    EXPECT_EQ(dump(cfg), before) << "the clone changed";
    cfg.set_crypto_if(Cfg::pkcs11);
    cfg.set_cert_name("changed");
    EXPECT_EQ(static_cast<unsigned int>(copy->get_crypto_if()), 7U);
    EXPECT_STREQ(copy->get_cert_name(), "cert_name");
}

TEST_F(OsslScardCfgImpTest, CloneOutlivesItsOriginal) {
    auto original = std::make_unique<OsslScardCfgImp>(Cfg::capi_store);
    original->set_cert_name("a name that needs memory of its own to be stored");
    const OsslScardCfgPtr copy(original->clone());
    original.reset();
    EXPECT_STREQ(copy->get_cert_name(), "a name that needs memory of its own to be stored");
}

// The sanitizers report memory that is not freed or freed twice.
TEST_F(OsslScardCfgImpTest, ReleaseDeleteAndTheDestructorEntryFreeTheConfiguration) {
    cfg.clone()->release();
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdelete-non-virtual-dtor"
    delete cfg.clone();
#pragma GCC diagnostic pop
    OsslScardCfg* third = cfg.clone();
    EXPECT_EQ(third->destructor_entry(1), third);
}

TEST_F(OsslScardCfgImpTest, DestructorEntryWithoutTheFreeBitKeepsTheMemory) {
    alignas(OsslScardCfgImp) std::array<unsigned char, sizeof(OsslScardCfgImp)> memory{};
    OsslScardCfg* placed = ::new (memory.data()) OsslScardCfgImp(Cfg::capi);
    placed->set_cert_name("a name that needs memory of its own, which must be given back");
    EXPECT_EQ(placed->destructor_entry(0), placed);
}

TEST_F(OsslScardCfgImpTest, SelectionFromTheConsoleRejectsANullPointer) {
    const LogCapture log;
    EXPECT_EQ(cfg.select_crypto_if_from_console(nullptr), 1);
    EXPECT_EQ(log.lines(), Lines{"<error> ossl_scard_cfg_imp:352 "
                                 "Kes::OsslScardCfgImp::select_crypto_if_from_console(): selected is a null "
                                 "pointer: val=3 (bad_argument)"});
}

/// A console that throws an exception not derived from std::exception, which the stream rethrows.
class FailingConsole final : private std::streambuf {
public:
    FailingConsole() : console_(std::cout.rdbuf(this)) { std::cout.exceptions(std::ios::badbit); }
    ~FailingConsole() override {
        std::cout.exceptions(std::ios::goodbit);
        std::cout.rdbuf(console_); // this clears the error state too
    }

private:
    int_type overflow(int_type) override { throw 42; }
    std::streamsize xsputn(const char*, std::streamsize) override { throw 42; }

    std::streambuf* console_;
};

/// Tests the three kinds of configuration that a client can obtain: used, default and cloned.
class OsslScardCfgConsoleTest : public ScardTest {
protected:
    /// Selects a back-end with each configuration, which must fail. @return the statuses and new log lines
    static Lines select_with_each() {
        OsslScardCfg& cfg = *scard().get_config_default();
        const std::unique_ptr<OsslScardCfg, void (*)(OsslScardCfg*)> clone(
            cfg.clone(), [](OsslScardCfg* copy) { copy->release(); });
        Lines results;
        for (OsslScardCfg* configuration : {scard().get_config_used(), &cfg, clone.get()}) {
            std::cout.clear(); // the error state of the previous selection
            const LogCapture log;
            const std::size_t num_before = log.lines().size(); // lines logged at the start of the library
            auto selected = static_cast<Cfg::CryptoIf>(77);
            const int status = configuration->select_crypto_if_from_console(&selected);
            EXPECT_EQ(static_cast<unsigned int>(selected), 77U);
            const Lines lines = log.lines();
            for (std::size_t i = num_before; i < lines.size(); ++i)
                results.push_back(std::to_string(status) + " " + lines[i]);
        }
        return results;
    }
};

TEST_F(OsslScardCfgConsoleTest, UnknownExceptionReturnsStatus255AndDoesNotChangeTheArgument) {
    const ConsoleWithoutInput console;
    Lines results;
    {
        const FailingConsole failing;
        results = select_with_each();
    }
    EXPECT_EQ(results, Lines(3, "255 <error> unhandled exception"));
    EXPECT_EQ(console.output(), "");
}

TEST_F(OsslScardCfgConsoleTest, EndOfInputIsAUserAbort) {
    const ConsoleWithoutInput console;
    EXPECT_EQ(select_with_each(),
              Lines(3, "1 <error> cons_select_menu:143 Kes::ConsSelectMenu<enum "
                       "Kes::OsslScardCfg::CryptoIf>::select(): user abort <end of input>: val=16 "
                       "(user_abort)"));
}

} // namespace
} // namespace Kes::test
