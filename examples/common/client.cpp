#include "common/client.h"

#include <cstring>
#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/ui.h>
#include <openssl/x509v3.h>

namespace examples {

void require(bool good, const std::string& text) {
    if (!good) throw std::runtime_error(text);
}

void check(Kes::OsslScardIf& card, int status) { require(status == 0, card.get_last_error_msg()); }

void open_card(Kes::OsslScardIf& card, Kes::OsslScardCfg* cfg) {
    // init() also returns 1 if only the log file cannot be opened. The library then works without a log, and
    // the client should too. After every other failure, read_scard() fails because of the state.
    if (card.init(cfg) != 0) std::cerr << card.get_last_error_msg() << std::endl;
    check(card, card.read_scard());
}

void read_and_set_pin(Kes::OsslScardIf& card, bool from_terminal) {
    char pin[128] = "";
    const std::unique_ptr<BIO, void (*)(BIO*)> input(BIO_new_fd(0, BIO_NOCLOSE), BIO_free_all); // unbuffered
    const bool was_read = from_terminal ? UI_UTIL_read_pw_string(pin, sizeof pin - 1, "PIN: ", 0) == 0
                                        : BIO_read(input.get(), pin, sizeof pin - 1) > 0;
    pin[strcspn(pin, "\r\n")] = '\0';
    const int status = was_read ? card.set_pin(pin) : 1;
    OPENSSL_cleanse(pin, sizeof pin);
    require(status == 0, was_read ? card.get_last_error_msg() : "no PIN was given");
}

void check_certificate(X509* cert) {
    require(X509_cmp_current_time(X509_get0_notBefore(cert)) < 0, "the certificate is not valid yet");
    require(X509_cmp_current_time(X509_get0_notAfter(cert)) > 0, "the certificate has expired");
    require(X509_check_purpose(cert, X509_PURPOSE_SSL_CLIENT, 0) == 1,
            "the certificate is not meant for TLS clients");
}

bool send_server_name(SSL* ssl, std::string host) {
    const std::unique_ptr<ASN1_OCTET_STRING, void (*)(ASN1_OCTET_STRING*)> address(
        a2i_IPADDRESS(host.c_str()), ASN1_OCTET_STRING_free);
    // What SSL_set_tlsext_host_name() does, without its cast, which -Wold-style-cast reports.
    return address ||
           SSL_ctrl(ssl, SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name, host.data()) == 1;
}

int run_client(const std::string& program, const std::function<void(Kes::OsslScardIf&)>& client) {
    Kes::OsslScardIf* card = get_ossl_scard_if();
    int status = 0;
    try {
        client(*card);
    } catch (const std::exception& error) {
        std::cerr << program << ": " << error.what() << std::endl;
        ERR_print_errors_cb([](const char* s, size_t, void*) { return (std::cerr << s) ? 1 : 0; }, nullptr);
        status = 1;
    }
    card->destroy();
    return status;
}

} // namespace examples
