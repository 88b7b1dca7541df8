#ifndef KES_IF_OSSL_SCARD_IF_IMP_H_
#define KES_IF_OSSL_SCARD_IF_IMP_H_

#include <cstdint>
#include <string>
#include <vector>

#include "base/pko_id_list.h"
#include "marvo/ossl_scard_if.h"
#include "utils/singleton.h"

namespace Kes {

/// The interface object. It logs each operation, forwards it to the manager and turns exceptions into
/// statuses. It also keeps what only clients need: the last message and the key numbers. The manager, not
/// this class, checks the order of operations. OsslScardIf documents the operations.
class OsslScardIfImp final : public OsslScardIf, public Singleton<OsslScardIfImp> {
public:
    int version_check(unsigned int if_version_in) override;
    OsslScardCfg* get_config_default() override;
    OsslScardCfg* get_config_used() override;
    int init(OsslScardCfg* cfg) override;
    int read_scard() override;
    bool is_pin_required() override;
    int set_pin(const char* pin) override;
    int discover_keys(size_t* num_keys) override;
    const char* get_key_name(size_t key_num) override;
    int set_key(unsigned int key_type, const char* key_id) override;
    int set_key(size_t key_num) override;
    int notify_config_done() override;
    int ossl_load() override;
    int ossl_unload() override;
    int ossl_get_private_key(evp_pkey_st** pkey) override;
    int ossl_get_certificate(x509_st** cert) override;
    const char* get_version() override;
    void destroy() override;
    const char* get_last_error_msg() override;
    int select_key_from_console(size_t* key_num) override;

private:
    friend class Singleton<OsslScardIfImp>;
    OsslScardIfImp();
    ~OsslScardIfImp();
    void* destructor_entry(unsigned int flags) override;

    /// Runs the body of an operation that returns a status. Logs the call, and stores and logs what the body
    /// throws.
    template <typename Body>
    int run(const char* operation, Body body);

    /// Starts an operation that returns no status. Logs the call, and resets the stored status and message to
    /// success.
    void begin_unguarded(const char* operation);

    void keep_failure(int failure_status, const char* message) noexcept;
    bool are_keys_valid() const;
    const PkoId* require_key(std::size_t key_num, const char* location) const;
    std::size_t ask_for_key() const;

    std::vector<const PkoId*> keys;    ///< of the last discover_keys(); borrowed from the manager
    std::uint64_t keys_generation = 0; ///< the list's generation when the keys were borrowed
    std::int32_t status = 0;
    std::string last_error_msg;
    const std::uint32_t if_version = 4;
};

} // namespace Kes

#endif // KES_IF_OSSL_SCARD_IF_IMP_H_
