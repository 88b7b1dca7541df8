#include "tool/selected_key.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <openssl/evp.h>

#include "tool/printable.h"

namespace Kes::tool {
namespace {

/// The keys with one id. The id selects the first one.
struct SameId {
    const PkoId* first;
    std::size_t others = 0;
};

std::vector<SameId> group_by_id(const PkoIdList& keys) {
    std::vector<SameId> groups;
    const PkoId* key = keys.find_first(PkoType::private_key);
    for (; key != nullptr; key = keys.find_next(PkoType::private_key, key)) {
        const auto same = std::find_if(groups.begin(), groups.end(), [key](const SameId& group) {
            return group.first->cluster_name == key->cluster_name;
        });
        if (same == groups.end())
            groups.push_back({key});
        else
            ++same->others;
    }
    return groups;
}

std::string listed(const std::vector<SameId>& groups) {
    std::string text;
    for (const auto& [first, others] : groups) {
        text +=
            "\n  --key " + printable(first->cluster_name, 200) + "  " + printable(first->display_name, 200);
        if (others == 1) text += " (another key with this id cannot be selected by it)";
        if (others > 1)
            text += " (" + std::to_string(others) + " other keys with this id cannot be selected by it)";
    }
    return text;
}

const PkoId& find_key(const PkoIdList& keys, const std::string& id) {
    const std::vector<SameId> groups = group_by_id(keys);
    if (groups.empty()) throw std::runtime_error("the library offers no key; \"marvo list\" says why");
    for (const SameId& group : groups)
        if (!id.empty() && group.first->cluster_name == id) return *group.first;
    if (!id.empty())
        // The id is not repeated, because it may be a PIN.
        throw std::runtime_error("the library offers no key with this id, but these:" + listed(groups));
    if (groups.size() > 1 || groups.front().others > 0)
        throw std::runtime_error("there are several keys; choose one of them:" + listed(groups));
    return *groups.front().first;
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
