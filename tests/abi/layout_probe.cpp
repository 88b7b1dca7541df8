// Compiled only for the compiler's dump of virtual tables, which needs the constructors' definitions.
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
