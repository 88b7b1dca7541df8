// A client that is built twice: with the libcrypto that the library uses, and with a static copy of its own.
#include <iostream>

#include "marvo/marvo.hpp"

int main() try {
    const marvo::Session session([](Kes::OsslScardCfg& cfg) { cfg.set_logfile(" "); });
    std::cout << "the session has started" << std::endl;
} catch (const marvo::Error& error) {
    std::cout << error.what() << std::endl;
    return 1;
}
