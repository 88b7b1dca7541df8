// Logs in to a TLS server with a key that stays on its card, and prints the answer. A client in C++17 with the
// wrapper.
// The constant "usage" describes the arguments. The environment contains the settings:
//   ossl_scard_cfg_crypto_if                  the back-end; default: pkcs11
//   ossl_scard_cfg_pkcs11_module_dll          the PKCS#11 module
//   ossl_scard_cfg_pkcs11_openssl_engine_dll  OpenSSL's pkcs11 engine
//   SSL_CERT_FILE                             the CA certificate of the server
#include <csignal>
#include <ctime>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <openssl/ui.h>
#include <openssl/x509v3.h>

#include "marvo/marvo.hpp"

static const char* const usage = "usage: login_cxx HOST PORT [KEY]\n"
                                 "  KEY  a part of the key's name; without it, the first key is used\n";

static void require(bool is_good, const std::string& text) {
    if (!is_good) throw marvo::Error(text);
}

static void ask_for_pin(marvo::Session& card) {
    char pin[128] = "";
    UI_UTIL_read_pw_string(pin, sizeof pin - 1, "PIN: ", 0); // after a failure, the PIN is empty
    card.set_pin(pin);                                       // wipes it
}

static marvo::Key choose(const std::vector<marvo::Key>& keys, const std::string& part) {
    for (const marvo::Key& key : keys)
        if (key.name.find(part) != std::string::npos) return key;
    throw marvo::Error("there is no such key");
}

static void load(marvo::Session& card, const std::string& part_of_name) {
    const std::vector<marvo::Key> keys = card.find_keys();
    for (const marvo::Key& key : keys)
        std::cout << "key: " << key.name << ", type " << key.type << ", id " << key.id << "\n";
    const marvo::Certificate certificate = card.load(choose(keys, part_of_name));
    std::cout << "certificate: " << certificate.subject << std::endl;
    // A server would reject such a certificate, usually without saying why.
    require(certificate.is_valid_at(std::time(nullptr)), "the certificate has expired or is not valid yet");
    require(certificate.is_meant_for_clients, "the certificate is not meant for TLS clients");
}

// Servers with several names choose the certificate by this name (SNI). RFC 6066 allows no IP address in it.
static bool send_server_name(SSL* ssl, std::string host) {
    const std::unique_ptr<ASN1_OCTET_STRING, decltype(&ASN1_OCTET_STRING_free)> address(
        a2i_IPADDRESS(host.c_str()), ASN1_OCTET_STRING_free);
    // What SSL_set_tlsext_host_name() does, without its cast, which -Wold-style-cast reports.
    return address ||
           SSL_ctrl(ssl, SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name, host.data()) == 1;
}

static void log_in(const marvo::Session& card, const std::string& host, const std::string& port) {
    const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> tls(SSL_CTX_new(TLS_client_method()),
                                                                SSL_CTX_free);
    SSL_CTX_set_verify(tls.get(), SSL_VERIFY_PEER, nullptr);
    require(SSL_CTX_set_default_verify_paths(tls.get()) == 1, "TLS cannot be set up");
    card.prepare(tls.get());
    const std::unique_ptr<BIO, decltype(&BIO_free_all)> connection(BIO_new_ssl_connect(tls.get()),
                                                                   BIO_free_all);
    SSL* ssl = nullptr;
    BIO_get_ssl(connection.get(), &ssl);
    BIO_set_conn_hostname(connection.get(), (host + ":" + port).c_str());
    require(send_server_name(ssl, host) && SSL_set1_host(ssl, host.c_str()) == 1 &&
                BIO_do_connect(connection.get()) == 1,
            "no TLS connection");
    BIO_puts(connection.get(), ("GET / HTTP/1.0\r\nHost: " + host + "\r\n\r\n").c_str());
    std::string answer;
    for (char c = 0; BIO_read(connection.get(), &c, 1) == 1;)
        answer += c;
    // With TLS 1.3, the refusal of a client certificate only arrives here.
    require(!answer.empty(), "the server does not answer");
    std::cout << answer << std::endl;
}

int main(int argc, char** argv) try {
    if (argc != 3 && argc != 4) {
        std::cerr << usage;
        return 2;
    }
#ifdef SIGPIPE
    std::signal(SIGPIPE, SIG_IGN); // otherwise a server that closes the connection ends the program
#endif
    marvo::Session card([](Kes::OsslScardCfg& cfg) { cfg.set_crypto_if(Kes::OsslScardCfg::pkcs11); });
    card.read_card();
    if (!card.warning().empty()) std::cerr << "login_cxx: " << card.warning() << std::endl;
    if (card.is_pin_required()) ask_for_pin(card);
    load(card, argc == 4 ? argv[3] : "");
    log_in(card, argv[1], argv[2]);
} catch (const std::exception& error) {
    std::cerr << "login_cxx: " << error.what() << std::endl;
    ERR_print_errors_cb([](const char* s, size_t, void*) { return (std::cerr << s) ? 1 : 0; }, nullptr);
    return 1;
}
