// A client that sets only the back-end and has defaults for everything else. Usage: windows_pkcs11_client
// <number of operations to run>. destroy() is the last operation, so with a lower number the client exits
// without it.
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "marvo/ossl_scard_cfg.h"
#include "marvo/ossl_scard_if.h"
#include "support/signing.h"

namespace {

using Kes::OsslScardCfg;
using Kes::OsslScardIf;

int start(OsslScardIf& scard) {
    OsslScardCfg* cfg = scard.get_config_default();
    cfg->set_crypto_if(OsslScardCfg::pkcs11);
    return scard.init(cfg);
}

int sign(OsslScardIf& scard) {
    evp_pkey_st* key = nullptr;
    x509_st* certificate = nullptr;
    if (scard.ossl_get_private_key(&key) != 0 || scard.ossl_get_certificate(&certificate) != 0) return 1;
    const std::string problem = Kes::test::signing_problem(key, certificate);
    if (!problem.empty()) std::printf("%s\n", problem.c_str());
    return problem.empty() ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    OsslScardIf& scard = *get_ossl_scard_if();
    std::size_t num_keys = 0;
    const std::vector<std::function<int()>> operations{
        [&] { return scard.version_check(4); },
        [&] { return start(scard); },
        [&] { return scard.read_scard(); },
        [&] { return scard.is_pin_required() ? scard.set_pin("24681357") : 1; },
        [&] { return scard.discover_keys(&num_keys); },
        [&] { return num_keys == 1 && std::strcmp(scard.get_key_name(0), "Card 1: Login") == 0 ? 0 : 1; },
        [&] { return scard.set_key(std::size_t{0}); },
        [&] { return scard.set_key(0U, "%01"); },
        [&] { return scard.notify_config_done(); },
        [&] { return scard.ossl_load(); },
        [&] { return sign(scard); },
        [&] { return scard.ossl_unload(); },
        [&] { return scard.destroy(), 0; },
    };
    const auto count = argc == 2 ? std::strtoul(argv[1], nullptr, 10) : operations.size();
    for (std::size_t i = 0; i < count && i < operations.size(); ++i) {
        if (operations[i]() == 0) continue;
        std::printf("operation %d: %s\n", static_cast<int>(i + 1), scard.get_last_error_msg());
        return 1;
    }
    return count > operations.size() ? 2 : 0; // the caller must know the number of operations
}
