#include <iostream>
#include <memory>

#include <marvo/marvo.hpp>

int main() try {
    const marvo::Session card([](Kes::OsslScardCfg& cfg) { cfg.set_logfile(" "); }); // without a log
    const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> tls(SSL_CTX_new(TLS_client_method()),
                                                                &SSL_CTX_free);
    card.prepare(tls.get());
} catch (const marvo::Error& error) {
    std::cout << error.what() << std::endl;
}
