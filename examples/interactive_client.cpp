// Lets the user choose a back-end and a key on the console, loads the key and shows its certificate.
// The environment can set all other settings, as for every client.
#include <iostream>
#include <memory>
#include <string>

#include <openssl/pem.h>
#include <openssl/x509.h>

#include "common/client.h"

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
    const auto check = [&card](int status) { examples::check(card, status); };
    check(card.version_check(4));
    Kes::OsslScardCfg* cfg = card.get_config_default();
    Kes::OsslScardCfg::CryptoIf crypto_if{};
    examples::require(cfg->select_crypto_if_from_console(&crypto_if) == 0,
                      "no cryptographic interface was chosen");
    cfg->set_crypto_if(crypto_if);
    examples::open_card(card, cfg);
    if (card.is_pin_required()) examples::read_and_set_pin(card);
    size_t num_keys = 0;
    check(card.discover_keys(&num_keys));
    examples::require(num_keys > 0, "there is no key to log in with");
    size_t key_num = 0;
    check(card.select_key_from_console(&key_num));
    check(card.set_key(key_num)); // the number is valid in this run only
    check(card.notify_config_done());
    check(card.ossl_load());
    X509* cert = nullptr;
    check(card.ossl_get_certificate(&cert));
    show_certificate(cert);
    examples::check_certificate(cert);
    check(card.ossl_unload());
}

int main(int argc, char** argv) {
    if (argc > 1) {
        const bool is_help = argv[1] == std::string("--help");
        (is_help ? std::cout : std::cerr) << "usage: interactive_client" << std::endl;
        return is_help ? 0 : 2;
    }
    return examples::run_client("interactive_client", run);
}
