#include "tool/signature_algorithms.h"

#include <gtest/gtest.h>
#include <openssl/objects.h>
#include <openssl/ssl.h>

#include "support/types.h"

namespace Kes::test {
namespace {

/// The names of the algorithms that a key can use.
Lines usable(const tool::KeyAbilities& abilities, int protocol) {
    Lines names;
    for (const tool::SignatureAlgorithm& algorithm : tool::signature_algorithms())
        if (tool::can_sign(abilities, algorithm, protocol)) names.push_back(algorithm.name);
    return names;
}

TEST(SignatureAlgorithmTest, NumbersAreNamed) {
    EXPECT_EQ(tool::name_of_algorithm(0x0804), "rsa_pss_rsae_sha256");
    EXPECT_EQ(tool::name_of_algorithm(0x0807), "ed25519");
    EXPECT_EQ(tool::name_of_algorithm(0xfe00), "0xfe00");
}

TEST(SignatureAlgorithmTest, RsaKeysUseOnlyPssWithTls13) {
    EXPECT_EQ(usable({false, NID_undef, true}, TLS1_3_VERSION),
              (Lines{"rsa_pss_rsae_sha256", "rsa_pss_rsae_sha384", "rsa_pss_rsae_sha512"}));
    EXPECT_EQ(usable({false, NID_undef, true}, TLS1_2_VERSION).size(), 7U);
}

TEST(SignatureAlgorithmTest, KeysOfCryptoApiUseOnlyPkcs1) {
    EXPECT_EQ(usable({false, NID_undef, false}, TLS1_2_VERSION),
              (Lines{"rsa_pkcs1_sha256", "rsa_pkcs1_sha384", "rsa_pkcs1_sha512", "rsa_pkcs1_sha1"}));
    EXPECT_EQ(usable({false, NID_undef, false}, TLS1_3_VERSION), Lines());
}

TEST(SignatureAlgorithmTest, CurveMattersWithTls13) {
    EXPECT_EQ(usable({true, NID_secp384r1, false}, TLS1_3_VERSION), Lines{"ecdsa_secp384r1_sha384"});
    EXPECT_EQ(usable({true, NID_secp384r1, false}, TLS1_2_VERSION).size(), 4U);
}

TEST(SignatureAlgorithmTest, AbilitiesFollowFromTypeCurveAndBackEnd) {
    const auto check = [](const tool::KeyAbilities& abilities, bool is_ec, int curve, bool has_pss) {
        EXPECT_EQ(abilities.is_ec, is_ec);
        EXPECT_EQ(abilities.curve, curve);
        EXPECT_EQ(abilities.has_pss, has_pss);
    };
    check(tool::abilities_of(false, "", false), false, NID_undef, true);
    check(tool::abilities_of(false, "", true), false, NID_undef, false);
    check(tool::abilities_of(true, "secp384r1", false), true, NID_secp384r1, false);
    check(tool::abilities_of(true, "", false), true, NID_undef, false);
}

} // namespace
} // namespace Kes::test
