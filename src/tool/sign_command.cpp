#include <array>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <memory>
#include <stdexcept>

#include <nlohmann/json.hpp>
#include <openssl/err.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>
#include <openssl/ssl.h>

#include "tool/commands.h"
#include "tool/json_parts.h"
#include "tool/openssl_reason.h"
#include "tool/printable.h"
#include "tool/selected_key.h"
#include "tool/signature_algorithms.h"

namespace Kes::tool {
namespace {

using DigestContextPtr = std::unique_ptr<EVP_MD_CTX, FreeWith<&::EVP_MD_CTX_free>>;
using ProvidersPtr = std::unique_ptr<OSSL_LIB_CTX, FreeWith<&::OSSL_LIB_CTX_free>>;
using Bytes = std::vector<unsigned char>;

/// One signature and its check.
struct SignatureTest {
    std::string algorithm;
    std::string error; ///< empty if the signature is right
    double milliseconds = 0;
};

Bytes random_bytes() {
    Bytes bytes(1000);
    if (::RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1)
        throw std::runtime_error("OpenSSL has no random bytes");
    return bytes;
}

bool set_padding(EVP_PKEY_CTX* operation, const SignatureAlgorithm& algorithm) {
    if (algorithm.kind != SignatureAlgorithm::Kind::rsa_pss) return true;
    return ::EVP_PKEY_CTX_set_rsa_padding(operation, RSA_PKCS1_PSS_PADDING) == 1 &&
           ::EVP_PKEY_CTX_set_rsa_pss_saltlen(operation, RSA_PSS_SALTLEN_DIGEST) == 1;
}

/// @return empty on failure
Bytes sign(EVP_PKEY* key, const SignatureAlgorithm& algorithm, const Bytes& data) {
    const DigestContextPtr context(::EVP_MD_CTX_new());
    EVP_PKEY_CTX* operation = nullptr;
    const EVP_MD* digest = ::EVP_get_digestbyname(algorithm.digest);
    Bytes signature(static_cast<std::size_t>(::EVP_PKEY_get_size(key)));
    std::size_t length = signature.size();
    const bool is_done =
        ::EVP_DigestSignInit(context.get(), &operation, digest, nullptr, key) == 1 &&
        set_padding(operation, algorithm) &&
        ::EVP_DigestSign(context.get(), signature.data(), &length, data.data(), data.size()) == 1;
    signature.resize(is_done ? length : 0);
    return signature;
}

/// Verifies in a context of its own, in which OpenSSL does not use the card's engine.
bool verify(X509* certificate, const SignatureAlgorithm& algorithm, const Bytes& data,
            const Bytes& signature) {
    const ProvidersPtr providers(::OSSL_LIB_CTX_new());
    Bytes der(static_cast<std::size_t>(::i2d_PUBKEY(::X509_get0_pubkey(certificate), nullptr)));
    unsigned char* end = der.data();
    ::i2d_PUBKEY(::X509_get0_pubkey(certificate), &end);
    const unsigned char* next = der.data();
    const EvpPkeyPtr key(
        ::d2i_PUBKEY_ex(nullptr, &next, static_cast<long>(der.size()), providers.get(), nullptr));
    const DigestContextPtr context(::EVP_MD_CTX_new());
    EVP_PKEY_CTX* operation = nullptr;
    return key &&
           ::EVP_DigestVerifyInit_ex(context.get(), &operation, algorithm.digest, providers.get(), nullptr,
                                     key.get(), nullptr) == 1 &&
           set_padding(operation, algorithm) &&
           ::EVP_DigestVerify(context.get(), signature.data(), signature.size(), data.data(), data.size()) ==
               1;
}

SignatureTest test_signature(const SelectedKey& key, const SignatureAlgorithm& algorithm, const Bytes& data) {
    SignatureTest test{algorithm.name, "", 0};
    ::ERR_clear_error();
    const auto start = std::chrono::steady_clock::now();
    const Bytes signature = sign(key.key(), algorithm, data);
    const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start;
    test.milliseconds = time.count();
    if (signature.empty())
        test.error = "cannot sign: " + take_openssl_reason("unknown reason");
    else if (!verify(key.certificate(), algorithm, data, signature))
        test.error = "the certificate does not verify the signature";
    ::ERR_clear_error();
    return test;
}

std::vector<SignatureTest> test_signatures(const SelectedKey& key) {
    const KeyAbilities abilities = abilities_of(key.key(), key.uses_cryptoapi());
    const Bytes data = random_bytes();
    std::vector<SignatureTest> tests;
    for (const SignatureAlgorithm& algorithm : signature_algorithms())
        if (can_sign(abilities, algorithm, TLS1_2_VERSION))
            tests.push_back(test_signature(key, algorithm, data));
    return tests;
}

void print_text(const SelectedKey& key, const std::vector<SignatureTest>& tests) {
    std::cout << "key: " << printable(key.name(), 200) << " (" << key.type() << ")\n";
    for (const SignatureTest& test : tests) {
        std::array<char, 32> time{};
        std::snprintf(time.data(), time.size(), "%.1f ms", test.milliseconds);
        std::cout << test.algorithm << ": "
                  << (test.error.empty() ? std::string("right, ") + time.data() : test.error) << '\n';
    }
    std::cout.flush();
}

void print_as_json(const Command& command, const SelectedKey& key, const std::vector<SignatureTest>& tests,
                   bool is_success) {
    Json array = Json::array();
    for (const SignatureTest& test : tests)
        array.push_back({{"algorithm", test.algorithm},
                         {"success", test.error.empty()},
                         {"error", test.error},
                         {"milliseconds", test.milliseconds}});
    print_json(command, {{"success", is_success}, {"key", key_json(key)}, {"signatures", array}});
}

ExitStatus sign_and_verify(const Command& command, const KeyOption& option) {
    const SelectedKey key(command, option.id());
    const std::vector<SignatureTest> tests = test_signatures(key);
    bool is_success = !tests.empty();
    for (const SignatureTest& test : tests)
        is_success = is_success && test.error.empty();
    if (command.as_json)
        print_as_json(command, key, tests, is_success);
    else
        print_text(key, tests);
    return is_success ? ExitStatus::success : ExitStatus::failure;
}

} // namespace

void create_sign_command(CLI::App& program, Command& command) {
    command.name = "sign";
    CLI::App* app = command.add_to(
        program, "Sign random bytes with a key, and verify the signatures with its certificate");
    const auto key = std::make_shared<KeyOption>();
    key->add_to(*app);
    command.pin.add_to(*app);
    command.pin.add_final_try_to(*app);
    command.action = [&command, key] { return sign_and_verify(command, *key); };
}

} // namespace Kes::tool
