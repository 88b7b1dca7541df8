// Lets the user choose a back-end and a key on the console, loads the key and shows its certificate.
// The environment can set all other settings, as for every client.
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

#include <openssl/pem.h>
#include <openssl/ui.h>
#include <openssl/x509.h>

#include "marvo/ossl_scard_cfg.h"
#include "marvo/ossl_scard_if.h"

static void require(bool good, const std::string& text) {
    if (!good) throw std::runtime_error(text);
}

// OpenSSL's function reads from the terminal without echo.
static void read_and_set_pin(Kes::OsslScardIf& card) {
    char pin[128] = "";
    const bool was_read = UI_UTIL_read_pw_string(pin, sizeof pin - 1, "PIN: ", 0) == 0;
    const int status = was_read ? card.set_pin(pin) : 0;
    OPENSSL_cleanse(pin, sizeof pin);
    require(was_read, "no PIN was given");
    require(status == 0, card.get_last_error_msg());
}

static void show_certificate(X509* cert) {
    const std::unique_ptr<BIO, void (*)(BIO*)> out(BIO_new_fd(1, BIO_NOCLOSE), BIO_free_all); // stdout
    BIO_puts(out.get(), "subject: ");
    X509_NAME_print_ex(out.get(), X509_get_subject_name(cert), 0, XN_FLAG_RFC2253);
    BIO_puts(out.get(), "\nissuer:  ");
    X509_NAME_print_ex(out.get(), X509_get_issuer_name(cert), 0, XN_FLAG_RFC2253);
    BIO_puts(out.get(), "\n");
    PEM_write_bio_X509(out.get(), cert);
}

static void run(Kes::OsslScardIf& card) {
    const auto check = [&card](int status) { require(status == 0, card.get_last_error_msg()); };
    check(card.version_check(4));
    Kes::OsslScardCfg* cfg = card.get_config_default();
    Kes::OsslScardCfg::CryptoIf crypto_if{};
    require(cfg->select_crypto_if_from_console(&crypto_if) == 0, "no cryptographic interface was chosen");
    cfg->set_crypto_if(crypto_if);
    check(card.init(cfg));
    check(card.read_scard());
    if (card.is_pin_required()) read_and_set_pin(card);
    size_t num_keys = 0;
    check(card.discover_keys(&num_keys));
    require(num_keys > 0, "there is no key to log in with");
    size_t key_num = 0;
    check(card.select_key_from_console(&key_num));
    check(card.set_key(key_num));
    check(card.notify_config_done());
    check(card.ossl_load());
    X509* cert = nullptr;
    check(card.ossl_get_certificate(&cert));
    show_certificate(cert);
    check(card.ossl_unload());
}

int main() {
    Kes::OsslScardIf* card = get_ossl_scard_if();
    int status = 0;
    try {
        run(*card);
    } catch (const std::exception& error) {
        std::cerr << "interactive_client: " << error.what() << std::endl;
        status = 1;
    }
    card->destroy();
    return status;
}
