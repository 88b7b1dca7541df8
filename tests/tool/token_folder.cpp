#include "token_folder.h"

#include <fstream>
#include <regex>

#include "support/process.h"

namespace Kes::test {

TokenFolder::TokenFolder(const std::string& label)
    : softhsm_conf_("SOFTHSM2_CONF", dir_.file("softhsm2.conf")),
      backend_("ossl_scard_cfg_crypto_if", "pkcs11"),
      module_("ossl_scard_cfg_pkcs11_module_dll", MARVO_SOFTHSM_MODULE) {
    std::ofstream(pin_file()) << pin << '\n';
    run_program({MARVO_SOFT_TOKEN, "ca", dir_.path().string()});
    add_token(label);
}

void TokenFolder::add_token(const std::string& label) const {
    run_program({MARVO_SOFT_TOKEN, "init", dir_.path().string(), label, pin});
}

void TokenFolder::add_key(const std::string& label, const std::vector<std::string>& options) const {
    std::vector<std::string> command{MARVO_SOFT_TOKEN, "add", dir_.path().string(), label, pin};
    command.insert(command.end(), options.begin(), options.end());
    run_program(command);
}

std::string TokenFolder::masked(const std::string& text) {
    static const std::regex slot("SoftHSM slot ID\\s+0x[0-9a-f]+");
    static const std::regex token_serial("serial [0-9a-f]{16}");
    static const std::regex serial("(serial   )[0-9A-F]{10,}");
    std::string result = std::regex_replace(text, slot, "SoftHSM slot ID SLOT");
    result = std::regex_replace(result, token_serial, "serial SERIAL");
    return std::regex_replace(result, serial, "$1SERIAL");
}

} // namespace Kes::test
