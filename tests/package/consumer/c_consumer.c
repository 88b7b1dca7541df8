#include <stdio.h>

#include <marvo/ossl_scard_c.h>

int main(void) {
    OsslScardIf* card = get_ossl_scard_if();
    printf("%s\n", card->table->get_version(card));
    card->table->destroy(card);
    return 0;
}
