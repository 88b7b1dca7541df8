#include "tool/selected_key.h"

#include <stdexcept>

#include <CLI/CLI.hpp>
#include <openssl/evp.h>

#include "tool/printable.h"

namespace Kes::tool {
namespace {

const PkoId& find_key(const PkoIdList& keys, const std::string& id) {
    const PkoId* key = keys.find_first(PkoType::private_key);
    std::string offered;
    std::size_t count = 0;
    for (; key != nullptr; key = keys.find_next(PkoType::private_key, key)) {
        if (!id.empty() && key->cluster_name == id) return *key;
        offered +=
            "\n  --key " + printable(key->cluster_name, 200) + "  " + printable(key->display_name, 200);
        ++count;
    }
    if (count == 0) throw std::runtime_error("the library offers no key; \"marvo list\" says why");
    if (!id.empty())
        throw std::runtime_error("the library offers no key with the id " + printable(id, 200) +
                                 ", but these:" + offered);
    if (count > 1) throw std::runtime_error("there are several keys; choose one of them:" + offered);
    return *keys.find_first(PkoType::private_key);
}

} // namespace

void KeyOption::add_to(CLI::App& command) {
    command.add_option("--key", id_, "The key, by its id as \"marvo list\" shows it (default: the only one)")
        ->type_name("ID");
}

SelectedKey::SelectedKey(const Command& command, const std::string& id) : manager(OsslScardMgr::instance()) {
    try {
        load(command, id);
    } catch (...) {
        OsslScardMgr::destroy_instance();
        throw;
    }
}

SelectedKey::~SelectedKey() { OsslScardMgr::destroy_instance(); }

void SelectedKey::load(const Command& command, const std::string& id) {
    manager.init(manager.get_config_default());
    manager.read_scard();
    if (manager.is_pin_required()) manager.set_pin(command.pin.read_for(manager.tokens()).c_str());
    manager.discover_keys();
    const PkoId& chosen = find_key(manager, id);
    name_ = chosen.display_name;
    id_ = chosen.cluster_name;
    manager.set_key_type(&chosen);
    manager.set_priv_key_name(&chosen);
    manager.set_cert_name_from_priv_key(&chosen);
    manager.notify_config_done();
    manager.ossl_load();
}

std::string SelectedKey::type() const {
    const char* type = ::EVP_PKEY_get0_type_name(key());
    return (type == nullptr ? "unknown" : type) + std::string(" ") +
           std::to_string(::EVP_PKEY_get_bits(key()));
}

bool SelectedKey::uses_cryptoapi() const {
    return manager.settings().get_crypto_if() != OsslScardCfg::pkcs11;
}

} // namespace Kes::tool
