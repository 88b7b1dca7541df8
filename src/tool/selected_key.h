#ifndef KES_TOOL_SELECTED_KEY_H_
#define KES_TOOL_SELECTED_KEY_H_

#include <string>

#include "manager/ossl_scard_mgr.h"
#include "tool/command.h"

namespace CLI {
class App;
}

namespace Kes::tool {

/// The option that selects a key.
class KeyOption {
public:
    void add_to(CLI::App& command);
    const std::string& id() const { return id_; } ///< empty without the option

private:
    std::string id_;
};

/// A key and its certificate, loaded as a client of the library does it. TLS objects that use them must be
/// freed before this object.
class SelectedKey {
public:
    /// Opens the card, logs in if that is required, and loads the key. Without an id, the card must offer
    /// exactly one key. Reads the PIN only if the card needs one.
    /// @throws ErrorBase the library's errors
    /// @throws std::runtime_error if there is no such key, or no PIN, or if the token's state forbids a try
    SelectedKey(const Command& command, const std::string& id);
    ~SelectedKey();
    SelectedKey(const SelectedKey&) = delete;
    SelectedKey& operator=(const SelectedKey&) = delete;

    EVP_PKEY* key() const { return manager.get_private_key(); }
    X509* certificate() const { return manager.get_certificate(); }
    const std::string& name() const { return name_; }
    const std::string& id() const { return id_; }

    /// Such as "RSA 2048".
    std::string type() const;

    /// Whether the key signs through CryptoAPI, which has only RSA with PKCS#1 v1.5.
    bool uses_cryptoapi() const;

private:
    void load(const Command& command, const std::string& id);

    OsslScardMgr& manager;
    std::string name_;
    std::string id_;
};

} // namespace Kes::tool

#endif // KES_TOOL_SELECTED_KEY_H_
