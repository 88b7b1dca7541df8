#ifndef KES_TESTS_SUPPORT_SYSTEM_STORE_H_
#define KES_TESTS_SUPPORT_SYSTEM_STORE_H_

#include <string>
#include <vector>

#include "types.h"
#include "utils/windows_api.h"

namespace Kes::test {

constexpr const char* card_provider = "Microsoft Base Smart Card Crypto Provider";
constexpr const char* software_provider = "Microsoft Enhanced RSA and AES Cryptographic Provider";

/// The location of a certificate's private key, which the store saves with the certificate.
struct KeyPlace {
    std::string provider;
    DWORD provider_type;
    std::string container;
    DWORD key_spec;
};
KeyPlace on_card(const std::string& container, DWORD key_spec);
KeyPlace in_software(const std::string& container, DWORD key_spec);

/// A certificate store of the current user, created if it does not exist. Each change is written to the
/// registry immediately. All functions throw std::runtime_error. The constructor always throws outside Wine,
/// to protect the user's certificates.
class SystemStore {
public:
    enum Start { empty, as_it_is };
    explicit SystemStore(std::string name, Start start = empty);

    void add(const Bytes& der, const KeyPlace* key = nullptr) { add(std::vector<Bytes>{der}, key); }
    void add(const std::vector<Bytes>& ders, const KeyPlace* key = nullptr);

    /// Deletes the store. The destructor does not, because one program may prepare the store for another.
    void remove();

    const std::string& name() const { return name_; }

private:
    const std::string name_;
};

/// Imports a private key into a container of Windows' software provider. Replaces a container of that name.
void import_software_key(const std::string& container, DWORD key_spec, Bytes blob);
void delete_software_key(const std::string& container);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_SYSTEM_STORE_H_
