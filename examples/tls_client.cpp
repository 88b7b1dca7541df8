// Logs in to a TLS server with a key that stays on its card. The constant "usage" describes the arguments.
// The environment contains the settings:
//   ossl_scard_cfg_crypto_if                  the back-end; default: pkcs11
//   ossl_scard_cfg_pkcs11_module_dll          the PKCS#11 module
//   ossl_scard_cfg_pkcs11_openssl_engine_dll  OpenSSL's pkcs11 engine
//   SSL_CERT_FILE                             the CA certificate of the server
#include <charconv>
#include <csignal>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <openssl/ssl.h>

#include "common/client.h"

using BioPtr = std::unique_ptr<BIO, void (*)(BIO*)>;
using examples::require;

static const char* const usage =
    "usage: tls_client [KEY HOST PORT 1.2|1.3] [-]\n"
    "  KEY  a key's number in the list, or its type and id, such as 0:%01 (\"cluster_name\" in the log)\n"
    "  -    read the PIN from standard input; without it, the terminal asks for the PIN\n"
    "Without KEY, tls_client lists the keys.\n";

struct Arguments {
    unsigned int key = 0; // a number, or with key_id, the type
    std::optional<std::string> key_id;
    std::string host; // empty: list the keys
    std::string port;
    int version = TLS1_3_VERSION;
    bool has_terminal = true;
};

static bool parse_key(const std::string& text, Arguments& parsed) {
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, parsed.key);
    if (error != std::errc()) return false;
    if (rest == end) return true;
    parsed.key_id = std::string(rest + 1, end);
    return *rest == ':';
}

static std::optional<Arguments> parse(std::vector<std::string> words) {
    Arguments parsed;
    if (!words.empty() && words.back() == "-") {
        parsed.has_terminal = false;
        words.pop_back();
    }
    if (words.empty()) return parsed;
    if (words.size() != 4 || words[1].empty() || !parse_key(words[0], parsed)) return std::nullopt;
    parsed.host = words[1];
    parsed.port = words[2];
    if (words[3] == "1.2") parsed.version = TLS1_2_VERSION;
    if (words[3] != "1.2" && words[3] != "1.3") return std::nullopt;
    return parsed;
}

static void log_in(EVP_PKEY* key, X509* cert, bool uses_cryptoapi, const Arguments& arguments) {
    const std::string& host = arguments.host;
    const int version = arguments.version;
    const std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> ctx(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
    SSL_CTX_set_verify(ctx.get(), SSL_VERIFY_PEER, nullptr);
    require(SSL_CTX_set_default_verify_paths(ctx.get()) &&
                SSL_CTX_set_min_proto_version(ctx.get(), version) &&
                SSL_CTX_set_max_proto_version(ctx.get(), version) &&
                SSL_CTX_use_certificate(ctx.get(), cert) && SSL_CTX_use_PrivateKey(ctx.get(), key),
            "TLS cannot be set up");
    // OpenSSL's CryptoAPI engine signs only with RSA and PKCS#1 v1.5. Of the TLS versions here, only 1.2
    // allows such signatures, and it prefers PSS unless the list of algorithms excludes it.
    if (uses_cryptoapi)
        require(version == TLS1_2_VERSION &&
                    SSL_CTX_set1_client_sigalgs_list(ctx.get(), "RSA+SHA256:RSA+SHA384:RSA+SHA512"),
                "a key of CryptoAPI logs in over TLS 1.2 only");
    const BioPtr bio(BIO_new_ssl_connect(ctx.get()), BIO_free_all);
    SSL* ssl = nullptr;
    BIO_get_ssl(bio.get(), &ssl);
    BIO_set_conn_hostname(bio.get(), (host + ":" + arguments.port).c_str());
    require(examples::send_server_name(ssl, host) && SSL_set1_host(ssl, host.c_str()) &&
                BIO_do_connect(bio.get()) > 0,
            "no TLS connection");
    BIO_puts(bio.get(), ("GET / HTTP/1.0\r\nHost: " + host + "\r\n\r\n").c_str());
    std::string answer;
    for (char c = 0; BIO_read(bio.get(), &c, 1) == 1;)
        if (c != '\r') answer += c;
    // With TLS 1.3, the refusal of a client certificate only arrives here.
    require(!answer.empty(), "the server does not answer");
    int type = 0, digest = 0;
    SSL_get_signature_type_nid(ssl, &type);
    SSL_get_signature_nid(ssl, &digest);
    std::cout << "protocol: " << SSL_get_version(ssl) << "\ncipher: " << SSL_get_cipher_name(ssl)
              << "\nsignature: " << (type == EVP_PKEY_EC ? "ECDSA" : OBJ_nid2sn(type)) << " with "
              << OBJ_nid2sn(digest) << "\nanswer: " << answer << std::endl;
}

static void list_keys(Kes::OsslScardIf& card) {
    size_t num_keys = 0;
    examples::check(card, card.discover_keys(&num_keys));
    for (size_t i = 0; i < num_keys; ++i)
        std::cout << "key " << i << ": " << card.get_key_name(i) << std::endl;
}

static void run(Kes::OsslScardIf& card, const Arguments& arguments) {
    const auto check = [&card](int status) { examples::check(card, status); };
    check(card.version_check(4));
    Kes::OsslScardCfg* cfg = card.get_config_default();
    cfg->set_crypto_if(Kes::OsslScardCfg::pkcs11);
    examples::open_card(card, cfg);
    if (card.is_pin_required()) examples::read_and_set_pin(card, arguments.has_terminal);
    list_keys(card);
    if (arguments.host.empty()) return;
    // The id of a key stays the same from run to run; its number may change.
    check(arguments.key_id ? card.set_key(arguments.key, arguments.key_id->c_str())
                           : card.set_key(size_t{arguments.key}));
    check(card.notify_config_done());
    check(card.ossl_load());
    EVP_PKEY* key = nullptr;
    X509* cert = nullptr;
    check(card.ossl_get_private_key(&key));
    check(card.ossl_get_certificate(&cert));
    examples::check_certificate(cert);
    std::cout << "key: " << EVP_PKEY_get0_type_name(key) << ' ' << EVP_PKEY_get_bits(key) << std::endl;
    const bool uses_cryptoapi = card.get_config_used()->get_crypto_if() != Kes::OsslScardCfg::pkcs11;
    log_in(key, cert, uses_cryptoapi, arguments);
    check(card.ossl_unload());
}

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (words == std::vector<std::string>{"--help"}) {
        std::cout << usage;
        return 0;
    }
    const std::optional<Arguments> arguments = parse(words);
    if (!arguments) {
        std::cerr << usage;
        return 2;
    }
#ifdef SIGPIPE
    std::signal(SIGPIPE, SIG_IGN); // otherwise a server that closes the connection ends the program
#endif
    return examples::run_client("tls_client", [&](Kes::OsslScardIf& card) { run(card, *arguments); });
}
