// Which objects of a token a client gets.
#include <algorithm>
#include <gtest/gtest.h>

#include "token_client.h"

namespace Kes::test {
namespace {

using Names = std::vector<std::string>;

struct KeyCase {
    const char* name;
    const char* id;
};

void PrintTo(const KeyCase& key, std::ostream* out) { *out << key.name; }

class TokenKeyTest : public testing::TestWithParam<KeyCase> {};

TEST_P(TokenKeyTest, LoadedKeySignsForItsCertificate) {
    const SoftToken token("keys");
    Client client;
    ASSERT_TRUE(client.discover()) << client.error();
    ASSERT_TRUE(client.load(GetParam().id)) << client.error();
    EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
    EXPECT_EQ(client.certificate_der(), token.certificate(GetParam().name));
}

INSTANTIATE_TEST_SUITE_P(Keys, TokenKeyTest,
                         testing::Values(KeyCase{"rsa2048", "%01"}, KeyCase{"rsa3072", "%02"},
                                         KeyCase{"p256", "%03"}, KeyCase{"p384", "%04"},
                                         KeyCase{"no_public", "%07"}, KeyCase{"no_public_ec", "%08"},
                                         KeyCase{"expired", "%09"}, KeyCase{"long_id", "%0a%0b%0c"}),
                         [](const auto& test) { return test.param.name; });

TEST(TokenTest, OnlyKeysWithACertificateAreOffered) {
    const SoftToken token("keys");
    Client client;
    ASSERT_TRUE(client.discover()) << client.error();
    EXPECT_EQ(client.key_names(), (Names{"Test Keys: expired", "Test Keys: long_id", "Test Keys: no_public",
                                         "Test Keys: no_public_ec", "Test Keys: p256", "Test Keys: p384",
                                         "Test Keys: renewed", "Test Keys: rsa2048", "Test Keys: rsa3072"}));
}

TEST(TokenTest, EveryKeyCanBeLoadedByItsNumber) {
    const SoftToken token("two");
    for (std::size_t number : {0U, 1U})
        EXPECT_EQ(status_of_child([&] {
                      Client client;
                      if (!client.discover() || client->set_key(number) != 0) return 1;
                      const std::string name = client->get_key_name(number);
                      if (client->notify_config_done() != 0 || client->ossl_load() != 0) return 2;
                      if (client.certificate_der() != token.certificate(name.substr(name.find(": ") + 2)))
                          return 3;
                      return signing_problem(client.key(), client.certificate()).empty() ? 0 : 4;
                  }),
                  0);
}

TEST(TokenTest, KeyWithoutCertificateIsLoggedInOneWarningAndCannotBeSelected) {
    const SoftToken token("keys");
    Client client;
    ASSERT_TRUE(client.discover()) << client.error();
    const std::string text =
        "<warn> corresponding cert not found; skipping private key: Test Keys: uncertified "
        "[type=private_key, key_type=0, name=pkcs11:token=Test Keys;id=%05;type=private, "
        "cluster_name=%05]";
    Names warnings;
    for (const std::string& line : client.log_lines())
        if (line.rfind("<warn>", 0) == 0) warnings.push_back(line);
    EXPECT_EQ(warnings, Names{text});
    EXPECT_EQ(client->set_key(0, "%05"), 1);
    EXPECT_EQ(
        client.error(),
        "ossl_scard_if_imp:263 Kes::OsslScardIfImp::set_key(): specified key not found: val=8 (not_found)");
}

TEST(TokenTest, CertificateWithoutKeyIsLoggedButNotOffered) {
    const SoftToken token("keys");
    Client client;
    ASSERT_TRUE(client.discover()) << client.error();
    EXPECT_TRUE(client.has_logged("<info> handling Test Keys: keyless [type=certificate, key_type=0, "
                                  "name=pkcs11:token=Test Keys;id=%0d;type=cert, cluster_name=%0d]"));
    EXPECT_EQ(client->set_key(0, "%0d"), 1);
}

TEST(TokenTest, OneOfTwoCertificatesWithTheSameIdIsLoaded) {
    const SoftToken token("keys");
    Client client;
    ASSERT_TRUE(client.discover()) << client.error();
    ASSERT_TRUE(client.load("%06")) << client.error();
    EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
    // The token decides which one: SoftHSM lists its objects in no fixed order.
    const bool is_second = client.has_logged("<info>   subject: CN=renewed two");
    EXPECT_NE(client.has_logged("<info>   subject: CN=renewed one"), is_second);
    EXPECT_EQ(client.certificate_der(), token.certificate(is_second ? "renewed_two" : "renewed"));
}

TEST(TokenTest, FilterUsesTheFirstScannedOfTwoCertificatesWithTheSameId) {
    const SoftToken token("keys");
    Client client;
    ASSERT_TRUE(client.discover()) << client.error();
    const std::string record =
        " [type=certificate, key_type=0, name=pkcs11:token=Test Keys;id=%06;type=cert, "
        "cluster_name=%06]";
    const std::string handling = "<info> handling ";
    Names listed, matched;
    std::string previous;
    for (const std::string& line : client.log_lines()) {
        if (line.starts_with(handling) && line.ends_with(record))
            listed.push_back(line.substr(handling.size()));
        else if (previous == "<info>   corresponding cert:" && line.ends_with(record))
            matched.push_back(line);
        previous = line;
    }
    ASSERT_EQ(listed.size(), 2U);
    EXPECT_EQ(matched, Names{listed.front()});
    std::sort(listed.begin(), listed.end());
    EXPECT_EQ(listed, (Names{"Test Keys: renewed" + record, "Test Keys: renewed_two" + record}));
}

TEST(TokenTest, LabelsWithBlanksAndNonAsciiLettersWork) {
    const SoftToken token("blanks");
    Client client;
    ASSERT_TRUE(client.discover()) << client.error();
    EXPECT_EQ(client.key_names(), Names{"T\xc3\xa4g der K\xc3\xa4rte  1: Schl\xc3\xbcssel  A"});
    ASSERT_TRUE(client.load()) << client.error();
    EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
    EXPECT_EQ(client.certificate_der(), token.certificate("Schl\xc3\xbcssel  A"));
}

/// A key that the library offers although the engine cannot resolve its name.
struct NameCase {
    const char* token;
    const char* id;
    const char* key_name;
    const char* reason;
};

void PrintTo(const NameCase& name, std::ostream* out) { *out << name.token; }

class TokenNameTest : public testing::TestWithParam<NameCase> {};

TEST_P(TokenNameTest, LoadFailsBecauseTheEngineCannotResolveTheName) {
    const SoftToken token(GetParam().token);
    Client client;
    ASSERT_TRUE(client.discover()) << client.error();
    ASSERT_EQ(client.key_names(), Names{GetParam().key_name});
    EXPECT_FALSE(client.load(GetParam().id));
    EXPECT_EQ(client.masked_error(),
              "ossl_engine:79 Kes::OsslEngine::read_private_key(): ENGINE_load_private_key() failed: rc=0\n"
              "error:pkcs11 engine:" +
                  std::string(GetParam().reason) + ":\nerror:engine routines:failed loading private key:");
    EXPECT_EQ(client.key(), nullptr);
    EXPECT_EQ(client.certificate(), nullptr);
}

INSTANTIATE_TEST_SUITE_P(Names, TokenNameTest,
                         testing::Values(NameCase{"empty_id", "%", "Empty Id: nameless", "invalid id"},
                                         NameCase{"semicolon", "%01", "semi;colon: semicolon", "invalid id"},
                                         NameCase{"percent", "%01", "per%cent: percent", "object not found"},
                                         NameCase{"escape", "%01", "esc%41pe: escape", "object not found"}),
                         [](const auto& test) { return test.param.token; });

struct FilterCase {
    const char* name;
    unsigned int kuse_type;
    unsigned int kuse;
    unsigned int xkuse_type;
    const char* xkuse;
    Names offered;
};

void PrintTo(const FilterCase& filter, std::ostream* out) { *out << filter.name; }

class FilterTest : public testing::TestWithParam<FilterCase> {};

TEST_P(FilterTest, OnlyKeysWhoseCertificatesPassAreOffered) {
    const SoftToken token("usages");
    Client client;
    client.cfg->set_kuse_filter_type(GetParam().kuse_type);
    client.cfg->set_kuse_filter(GetParam().kuse);
    client.cfg->set_xkuse_filter_type(GetParam().xkuse_type);
    client.cfg->set_xkuse_nid_filter(GetParam().xkuse);
    ASSERT_TRUE(client.discover()) << client.error();
    Names names = client.key_names();
    for (std::string& name : names)
        name.erase(0, std::string("Usages: ").size());
    EXPECT_EQ(names, GetParam().offered);
}

constexpr unsigned int all = 0;
constexpr unsigned int exact = 1;
constexpr unsigned int exact_none = 2;
constexpr const char* client_auth = "1.3.6.1.5.5.7.3.2";
constexpr const char* unknown_usage = "1.2.3.4.5";

INSTANTIATE_TEST_SUITE_P(
    Filters, FilterTest,
    testing::Values(
        FilterCase{"All",
                   all,
                   0x80,
                   all,
                   client_auth,
                   {"both", "decipher", "encipher", "nothing", "sign", "sign_client", "unknown"}},
        FilterCase{"OneBit", exact, 0x80, all, "", {"sign", "sign_client"}},
        FilterCase{"TwoBits", exact, 0xa0, all, "", {"sign_client"}},
        FilterCase{"SecondByte", exact, 0x8008, all, "", {"decipher"}},
        FilterCase{"NoBit", exact, 0, all, "", {}},
        FilterCase{"OneBitOrNone", exact_none, 0x80, all, "", {"nothing", "sign", "sign_client", "unknown"}},
        FilterCase{"NoBitOrNone", exact_none, 0, all, "", {"nothing", "unknown"}},
        FilterCase{"Client", all, 0, exact, client_auth, {"both", "encipher", "sign_client"}},
        FilterCase{"ClientOrNone",
                   all,
                   0,
                   exact_none,
                   client_auth,
                   {"both", "decipher", "encipher", "nothing", "sign", "sign_client"}},
        FilterCase{"UnknownUsage", all, 0, exact, unknown_usage, {"both", "unknown"}},
        FilterCase{"NoUsage", all, 0, exact, "", {}},
        FilterCase{"UsageByItsName", all, 0, exact, "clientAuth", {}},
        FilterCase{"BothHalves", exact, 0x80, exact, client_auth, {"sign_client"}},
        FilterCase{
            "BothHalvesOrNone", exact_none, 0x40, exact_none, unknown_usage, {"both", "nothing", "unknown"}}),
    [](const auto& test) { return test.param.name; });

} // namespace
} // namespace Kes::test
