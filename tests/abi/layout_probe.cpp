// Compiled for the compiler's dump of virtual tables alone: the constructors make it lay them out.
#include "marvo/ossl_scard_cfg.h"
#include "marvo/ossl_scard_if.h"

struct CfgProbe : Kes::OsslScardCfg {
    CfgProbe();
};
CfgProbe::CfgProbe() {}

struct IfProbe : Kes::OsslScardIf {
    IfProbe();
};
IfProbe::IfProbe() {}
