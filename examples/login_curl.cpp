// Downloads a page with libcurl and a key that stays on its card. libcurl must use OpenSSL, and the same
// libcrypto as the library. The environment contains the same settings as for login.cpp, but CURL_CA_BUNDLE
// has the CA certificate of the server.
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <curl/curl.h>
#include <openssl/ui.h>

#include "marvo/marvo.hpp"

/// What the callback of libcurl needs, and the reason of its failure. No exception may pass through libcurl.
struct Login {
    marvo::Session card{[](Kes::OsslScardCfg& cfg) { cfg.set_crypto_if(Kes::OsslScardCfg::pkcs11); }};
    std::string problem;
};

static CURLcode prepare(CURL*, void* tls, void* context) {
    auto* login = static_cast<Login*>(context);
    try {
        login->card.prepare(static_cast<SSL_CTX*>(tls));
        return CURLE_OK;
    } catch (const std::exception& error) {
        login->problem = error.what();
        return CURLE_SSL_CERTPROBLEM;
    }
}

// A server would reject such a certificate, usually without saying why.
static void check(const marvo::Certificate& certificate) {
    if (!certificate.is_valid_at(std::time(nullptr)))
        throw marvo::Error("the certificate has expired or is not valid yet");
    if (!certificate.is_meant_for_clients) throw marvo::Error("the certificate is not meant for TLS clients");
}

static void load_first_key(marvo::Session& card) {
    card.read_card();
    if (!card.warning().empty()) std::cerr << "login_curl: " << card.warning() << std::endl;
    if (card.is_pin_required()) {
        char pin[128] = "";
        UI_UTIL_read_pw_string(pin, sizeof pin - 1, "PIN: ", 0); // after a failure, the PIN is empty
        card.set_pin(pin);                                       // wipes it
    }
    const std::vector<marvo::Key> keys = card.find_keys();
    if (keys.empty()) throw marvo::Error("there is no key to log in with");
    const marvo::Certificate certificate = card.load(keys.front());
    std::cout << "certificate: " << certificate.subject << std::endl;
    check(certificate);
}

static void download(Login& login, const char* url) {
    const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl(curl_easy_init(), curl_easy_cleanup);
    char reason[CURL_ERROR_SIZE] = "";
    curl_easy_setopt(curl.get(), CURLOPT_URL, url);
    curl_easy_setopt(curl.get(), CURLOPT_FAILONERROR, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_ERRORBUFFER, reason);
    if (const char* ca_file = std::getenv("CURL_CA_BUNDLE"))
        curl_easy_setopt(curl.get(), CURLOPT_CAINFO, ca_file);
    curl_easy_setopt(curl.get(), CURLOPT_SSL_CTX_FUNCTION, &prepare);
    curl_easy_setopt(curl.get(), CURLOPT_SSL_CTX_DATA, &login);
    if (curl_easy_perform(curl.get()) != CURLE_OK) // otherwise curl has written the page to standard output
        throw marvo::Error(login.problem.empty() ? reason : login.problem);
    std::cout << std::endl;
} // frees curl, and its TLS objects, before the session ends

int main(int argc, char** argv) try {
    if (argc != 2) {
        std::cerr << "usage: login_curl URL\n";
        return 2;
    }
    Login login;
    load_first_key(login.card);
    download(login, argv[1]);
} catch (const std::exception& error) {
    std::cerr << "login_curl: " << error.what() << std::endl;
    return 1;
}
