#include "if/ossl_scard_if_imp.h"
#include "marvo/ossl_scard_if.h"

// The only name in the linker's export list.
extern "C" Kes::OsslScardIf* get_ossl_scard_if() { return &Kes::OsslScardIfImp::instance(); }
