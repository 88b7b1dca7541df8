#ifndef KES_TESTS_SUPPORT_SYSTEM_STORE_H_
#define KES_TESTS_SUPPORT_SYSTEM_STORE_H_

#include <string>
#include <vector>

#include "types.h"
#include "utils/windows_api.h"

namespace Kes::test {

constexpr const char* card_provider = "Microsoft Base Smart Card Crypto Provider";
constexpr const char* software_provider = "Microsoft Enhanced RSA and AES Cryptographic Provider";

/// Where the private key of a certificate is, as the store keeps it with the certificate.
struct KeyPlace {
    std::string provider;
    DWORD provider_type;
    std::string container;
    DWORD key_spec;
};
KeyPlace on_card(const std::string& container, DWORD key_spec);
KeyPlace in_software(const std::string& container, DWORD key_spec);

/// A certificate store of the current user, which is made unless it exists. Each change reaches the registry
/// at once. All functions throw std::runtime_error; the constructor whenever this is not Wine, because
/// elsewhere the store may be dear to somebody.
class SystemStore {
public:
    enum Start { empty, as_it_is };
    explicit SystemStore(std::string name, Start start = empty);

    void add(const Bytes& der, const KeyPlace* key = nullptr) { add(std::vector<Bytes>{der}, key); }
    void add(const std::vector<Bytes>& ders, const KeyPlace* key = nullptr);

    /// Deletes the store. Not done by the end of the object: what one program prepares may be for another.
    void remove();

    const std::string& name() const { return name_; }

private:
    const std::string name_;
};

/// Puts a private key into a container of Windows' software provider, in place of one with that name.
void import_software_key(const std::string& container, DWORD key_spec, Bytes blob);
void delete_software_key(const std::string& container);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_SYSTEM_STORE_H_
