// Logs in to a TLS server with a key that stays on its card.
//
//   tls_client [KEY HOST PORT 1.2|1.3] [-]
//
// Without KEY, it lists the keys on the token. With "-", it reads the PIN from standard input; otherwise it
// asks for the PIN on the terminal. The environment contains the settings:
//   ossl_scard_cfg_crypto_if                  the back-end; default: pkcs11
//   ossl_scard_cfg_pkcs11_module_dll          the PKCS#11 module
//   ossl_scard_cfg_pkcs11_openssl_engine_dll  OpenSSL's pkcs11 engine
//   SSL_CERT_FILE                             the CA certificate of the server
#include <csignal>
#include <cstring>
#include <iostream>
#include <memory>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/ui.h>
#include <stdexcept>
#include <string>

#include "marvo/ossl_scard_cfg.h"
#include "marvo/ossl_scard_if.h"

using BioPtr = std::unique_ptr<BIO, void (*)(BIO*)>;
static void require(bool good, const std::string& text) {
    if (!good) throw std::runtime_error(text);
}

static void read_and_set_pin(Kes::OsslScardIf& card, bool ask) {
    char pin[128] = "";
    const BioPtr input(BIO_new_fd(0, BIO_NOCLOSE), BIO_free_all); // unbuffered: keeps no copy of the PIN
    const bool was_read = ask ? UI_UTIL_read_pw_string(pin, sizeof pin - 1, "PIN: ", 0) == 0 // no echo
                              : BIO_read(input.get(), pin, sizeof pin - 1) > 0;
    pin[strcspn(pin, "\r\n")] = '\0';
    const int status = was_read ? card.set_pin(pin) : 1;
    OPENSSL_cleanse(pin, sizeof pin);
    require(status == 0, was_read ? card.get_last_error_msg() : "no PIN was given");
}

static void log_in(EVP_PKEY* key, X509* cert, bool uses_cryptoapi, const std::string& host,
                   const std::string& port, int version) {
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
    BIO_set_conn_hostname(bio.get(), (host + ":" + port).c_str());
    require(SSL_set1_host(ssl, host.c_str()) && BIO_do_connect(bio.get()) > 0, "no TLS connection");
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

static void run(Kes::OsslScardIf& card, int argc, char** argv) {
    const auto check = [&card](int status) { require(status == 0, card.get_last_error_msg()); };
    check(card.version_check(4));
    Kes::OsslScardCfg* cfg = card.get_config_default();
    cfg->set_crypto_if(Kes::OsslScardCfg::pkcs11);
    check(card.init(cfg));
    check(card.read_scard());
    if (card.is_pin_required()) read_and_set_pin(card, argv[argc - 1] != std::string("-"));
    size_t num_keys = 0;
    check(card.discover_keys(&num_keys));
    for (size_t i = 0; i < num_keys; ++i)
        std::cout << "key " << i << ": " << card.get_key_name(i) << std::endl;
    if (argc < 5) return;
    check(card.set_key(static_cast<size_t>(std::stoul(argv[1]))));
    check(card.notify_config_done());
    check(card.ossl_load());
    EVP_PKEY* key = nullptr;
    X509* cert = nullptr;
    check(card.ossl_get_private_key(&key));
    check(card.ossl_get_certificate(&cert));
    std::cout << "key: " << EVP_PKEY_get0_type_name(key) << ' ' << EVP_PKEY_get_bits(key) << std::endl;
    const bool uses_cryptoapi = card.get_config_used()->get_crypto_if() != Kes::OsslScardCfg::pkcs11;
    log_in(key, cert, uses_cryptoapi, argv[2], argv[3],
           argv[4] == std::string("1.2") ? TLS1_2_VERSION : TLS1_3_VERSION);
    check(card.ossl_unload());
}

int main(int argc, char** argv) {
    Kes::OsslScardIf& card = *get_ossl_scard_if();
#ifdef SIGPIPE
    std::signal(SIGPIPE, SIG_IGN); // otherwise a server that closes the connection ends the program
#endif
    int status = 0;
    try {
        run(card, argc, argv);
    } catch (const std::exception& error) {
        std::cerr << "tls_client: " << error.what() << std::endl;
        ERR_print_errors_cb([](const char* s, size_t, void*) { return (std::cerr << s) ? 1 : 0; }, nullptr);
        status = 1;
    }
    card.destroy();
    return status;
}
