#include <iostream>
#include <marvo/ossl_scard_if.h>

int main() {
    Kes::OsslScardIf* card = get_ossl_scard_if();
    std::cout << card->get_version() << std::endl;
    card->destroy();
}
