// A client without the TLS settings that CryptoAPI keys need. It uses OpenSSL's defaults unless its arguments
// say otherwise, logs in with the first key and prints what its user sees.
//   plain_client PORT [tls12] [pkcs1]
// "tls12" excludes later protocol versions; "pkcs1" offers only signatures that the engine supports.
#include <algorithm>
#include <iostream>
#include <memory>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <stdexcept>
#include <string>
#include <vector>

#include "marvo/ossl_scard_cfg.h"
#include "marvo/ossl_scard_if.h"

namespace {

using Arguments = std::vector<std::string>;

bool has(const Arguments& arguments, const std::string& argument) {
    return std::find(arguments.begin(), arguments.end(), argument) != arguments.end();
}

void require(bool good, const std::string& text) {
    if (!good) throw std::runtime_error(text);
}

std::string read_answer(SSL* ssl) {
    std::string answer;
    for (char c = 0; SSL_read(ssl, &c, 1) == 1;)
        if (c != '\r') answer += c;
    return answer;
}

void log_in(EVP_PKEY* key, X509* cert, const Arguments& arguments) {
    const std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> tls(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
    require(tls && SSL_CTX_set_default_verify_paths(tls.get()) && SSL_CTX_use_certificate(tls.get(), cert) &&
                SSL_CTX_use_PrivateKey(tls.get(), key),
            "TLS cannot be set up");
    SSL_CTX_set_verify(tls.get(), SSL_VERIFY_PEER, nullptr);
    if (has(arguments, "tls12"))
        require(SSL_CTX_set_max_proto_version(tls.get(), TLS1_2_VERSION), "the version cannot be set");
    if (has(arguments, "pkcs1"))
        require(SSL_CTX_set1_client_sigalgs_list(tls.get(), "RSA+SHA256:RSA+SHA384:RSA+SHA512"),
                "the signatures cannot be set");
    const std::unique_ptr<SSL, void (*)(SSL*)> ssl(SSL_new(tls.get()), SSL_free);
    BIO* connection = BIO_new_connect(("127.0.0.1:" + arguments.at(0)).c_str());
    SSL_set_bio(ssl.get(), connection, connection);
    const int status = SSL_connect(ssl.get());
    std::cout << "SSL_connect: " << status << std::endl;
    require(status == 1, "no TLS connection");
    int digest = 0;
    std::cout << "protocol: " << SSL_get_version(ssl.get())
              << "\nsigned: " << (SSL_get_signature_nid(ssl.get(), &digest) != 0 ? "yes" : "no") << std::endl;
    const std::string request = "GET / HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n";
    SSL_write(ssl.get(), request.data(), static_cast<int>(request.size()));
    const std::string answer = read_answer(ssl.get());
    require(!answer.empty(), "the server does not answer");
    std::cout << "answer: " << answer << std::endl;
}

void run(Kes::OsslScardIf& card, const Arguments& arguments) {
    const auto check = [&card](int status) { require(status == 0, card.get_last_error_msg()); };
    check(card.init(card.get_config_default()));
    check(card.read_scard());
    size_t num_keys = 0;
    check(card.discover_keys(&num_keys));
    check(card.set_key(size_t{0}));
    check(card.notify_config_done());
    check(card.ossl_load());
    EVP_PKEY* key = nullptr;
    X509* cert = nullptr;
    check(card.ossl_get_private_key(&key));
    check(card.ossl_get_certificate(&cert));
    log_in(key, cert, arguments);
    check(card.ossl_unload());
}

} // namespace

int main(int argc, char** argv) {
    Kes::OsslScardIf& card = *get_ossl_scard_if();
    int status = 0;
    try {
        run(card, Arguments(argv + 1, argv + argc));
    } catch (const std::exception& error) {
        std::cout << "plain_client: " << error.what() << std::endl;
        ERR_print_errors_cb([](const char* text, size_t, void*) { return std::cout << text ? 1 : 0; },
                            nullptr);
        status = 1;
    }
    std::cout.flush();
    card.destroy();
    return status;
}
