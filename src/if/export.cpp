#include "if/ossl_scard_if_imp.h"
#include "marvo/ossl_scard_if.h"

/// Visible by the export list that the linker is given, alone of all names.
extern "C" Kes::OsslScardIf* get_ossl_scard_if() { return &Kes::OsslScardIfImp::instance(); }
