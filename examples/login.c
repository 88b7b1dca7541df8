/* Logs in to a TLS server with a key that stays on its card, and prints the answer. A client in C99.
   The constant "usage" describes the arguments. The environment contains the settings:
     ossl_scard_cfg_crypto_if                  the back-end; default: pkcs11
     ossl_scard_cfg_pkcs11_module_dll          the PKCS#11 module
     ossl_scard_cfg_pkcs11_openssl_engine_dll  OpenSSL's pkcs11 engine
     SSL_CERT_FILE                             the CA certificate of the server */
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/ui.h>
#include <openssl/x509v3.h>

#include "marvo/ossl_scard_c.h"

static const char* const usage = "usage: login_c HOST PORT [TYPE ID]\n"
                                 "  TYPE ID  of a key, such as 0 %01; without them, the first key is used\n";

/* Prints the text if the condition is false. Returns the condition. */
static bool require(bool is_good, const char* text) {
    if (!is_good) fprintf(stderr, "login_c: %s\n", text);
    return is_good;
}

/* Prints the library's message if the status is not that of a success. */
static bool check(OsslScardIf* card, int status) {
    return status == ossl_scard_success || require(false, card->table->get_last_error_msg(card));
}

static bool open_card(OsslScardIf* card) {
    const unsigned int back_end = ossl_scard_pkcs11;
    if (!check(card, card->table->version_check(card, ossl_scard_if_version))) return false;
    OsslScardCfg* cfg = card->table->get_config_default(card);
    cfg->table->set_crypto_if(cfg, &back_end);
    /* init() also fails if only the log cannot be opened. After other failures, read_scard() fails too. */
    check(card, card->table->init(card, cfg));
    return check(card, card->table->read_scard(card));
}

static bool ask_for_pin(OsslScardIf* card) {
    char pin[128] = "";
    if (!card->table->is_pin_required(card)) return true;
    const bool is_read = UI_UTIL_read_pw_string(pin, (int)sizeof pin - 1, "PIN: ", 0) == 0 && pin[0] != '\0';
    /* The card may have been removed in the meantime. */
    const bool is_set = require(is_read, "no PIN was given") && check(card, card->table->read_scard(card)) &&
                        check(card, card->table->set_pin(card, pin));
    OPENSSL_cleanse(pin, sizeof pin);
    return is_set;
}

/* Without an id, selects the first key. */
static bool load_key(OsslScardIf* card, const char* type, const char* id) {
    const OsslScardIfTable* table = card->table;
    size_t num_keys = 0;
    if (!check(card, table->discover_keys(card, &num_keys))) return false;
    for (size_t i = 0; i < num_keys; ++i)
        printf("key: %s\n", table->get_key_name(card, i));
    if (!require(num_keys > 0, "there is no key to log in with")) return false;
    const int status = id == NULL ? table->set_key_by_number(card, 0)
                                  : table->set_key_by_id(card, (unsigned int)strtoul(type, NULL, 10), id);
    return check(card, status) && check(card, table->notify_config_done(card)) &&
           check(card, table->ossl_load(card));
}

/* A server would reject such a certificate, usually without saying why. */
static bool check_certificate(X509* cert) {
    return require(X509_cmp_current_time(X509_get0_notBefore(cert)) < 0,
                   "the certificate is not valid yet") &&
           require(X509_cmp_current_time(X509_get0_notAfter(cert)) > 0, "the certificate has expired") &&
           require(X509_check_purpose(cert, X509_PURPOSE_SSL_CLIENT, 0) == 1,
                   "the certificate is not meant for TLS clients");
}

static bool prepare(SSL_CTX* tls, OsslScardIf* card) {
    EVP_PKEY* key = NULL;
    X509* cert = NULL;
    if (!check(card, card->table->ossl_get_private_key(card, &key)) ||
        !check(card, card->table->ossl_get_certificate(card, &cert)) || !check_certificate(cert))
        return false;
    SSL_CTX_set_verify(tls, SSL_VERIFY_PEER, NULL);
    const OsslScardCfg* cfg = card->table->get_config_used(card);
    /* OpenSSL's CryptoAPI engine signs only with RSA and PKCS#1 v1.5. */
    const bool is_limited = *cfg->table->get_crypto_if(cfg) != ossl_scard_pkcs11;
    return require(
        SSL_CTX_set_default_verify_paths(tls) == 1 && SSL_CTX_use_certificate(tls, cert) == 1 &&
            SSL_CTX_use_PrivateKey(tls, key) == 1 &&
            (!is_limited || (SSL_CTX_set_max_proto_version(tls, TLS1_2_VERSION) == 1 &&
                             SSL_CTX_set1_client_sigalgs_list(tls, "RSA+SHA256:RSA+SHA384:RSA+SHA512") == 1)),
        "TLS cannot be set up");
}

static bool print_answer(BIO* connection, const char* host) {
    char part[1024];
    size_t size = 0;
    bool has_answer = false;
    BIO_printf(connection, "GET / HTTP/1.0\r\nHost: %s\r\n\r\n", host);
    while (BIO_read_ex(connection, part, sizeof part, &size) == 1) {
        fwrite(part, 1, size, stdout);
        has_answer = true;
    }
    puts("");
    /* With TLS 1.3, the refusal of a client certificate only arrives here. */
    return require(has_answer, "the server does not answer");
}

/* Servers with several names choose the certificate by this name (SNI). RFC 6066 allows no IP address in it. */
static bool send_server_name(SSL* ssl, const char* host) {
    ASN1_OCTET_STRING* address = a2i_IPADDRESS(host);
    const bool is_address = address != NULL;
    ASN1_OCTET_STRING_free(address);
    return is_address || SSL_set_tlsext_host_name(ssl, host) == 1;
}

static bool connect_and_ask(SSL_CTX* tls, const char* host, const char* port) {
    SSL* ssl = NULL;
    BIO* connection = BIO_new_ssl_connect(tls);
    if (!require(connection != NULL, "out of memory")) return false;
    BIO_get_ssl(connection, &ssl);
    BIO_set_conn_hostname(connection, host);
    BIO_set_conn_port(connection, port);
    const bool is_good = require(send_server_name(ssl, host) && SSL_set1_host(ssl, host) == 1 &&
                                     BIO_do_connect(connection) == 1,
                                 "no TLS connection") &&
                         print_answer(connection, host);
    BIO_free_all(connection);
    return is_good;
}

static bool log_in(OsslScardIf* card, const char* host, const char* port) {
    SSL_CTX* tls = SSL_CTX_new(TLS_client_method());
    const bool is_good =
        require(tls != NULL, "out of memory") && prepare(tls, card) && connect_and_ask(tls, host, port);
    SSL_CTX_free(tls); /* before the key */
    return is_good;
}

/* ERR_print_errors_fp() would need OpenSSL's applink.c in a program that Microsoft's compiler built. */
static int print_error(const char* text, size_t length, void* context) {
    (void)context;
    return fwrite(text, 1, length, stderr) == length;
}

int main(int argc, char** argv) {
    if (argc != 3 && argc != 5) {
        fputs(usage, stderr);
        return 2;
    }
#ifdef SIGPIPE
    signal(SIGPIPE, SIG_IGN); /* otherwise a server that closes the connection ends the program */
#endif
    OsslScardIf* card = get_ossl_scard_if();
    const bool is_good = open_card(card) && ask_for_pin(card) &&
                         load_key(card, argc == 5 ? argv[3] : NULL, argc == 5 ? argv[4] : NULL) &&
                         log_in(card, argv[1], argv[2]);
    if (!is_good) ERR_print_errors_cb(print_error, NULL);
    card->table->destroy(card);
    return is_good ? 0 : 1;
}
