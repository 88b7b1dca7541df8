#ifndef KES_TESTS_E2E_TOKENS_SOFT_TOKEN_H_
#define KES_TESTS_E2E_TOKENS_SOFT_TOKEN_H_

#include <string>
#include <vector>

#include "support/support.h"
#include "wrapped_module.h"

namespace Kes::test {

constexpr const char* token_pin = "123456"; // of every prepared token except "canary"

std::string softhsm_module();
std::string pkcs11_engine();

/// A private copy of one of the prepared token folders. SoftHSM uses it during the lifetime of the object.
class SoftToken {
public:
    explicit SoftToken(const std::string& name);

    /// The DER-encoded certificate that was created for the object with this label.
    Bytes certificate(const std::string& object) const;

    /// Deletes all tokens, as if they had never existed.
    void remove() const;

    std::string file(const std::string& name) const { return dir_.file(name); }

private:
    TempDir dir_;
    EnvVar softhsm_conf_;
};

/// Wraps SoftHSM in the counting PKCS#11 module: configure path() as the module.
class WrappedModule {
public:
    WrappedModule();
    ~WrappedModule();
    WrappedModule(const WrappedModule&) = delete;
    WrappedModule& operator=(const WrappedModule&) = delete;

    static std::string path();

    WrappedBlock* operator->() const { return block_; }
    std::uint64_t calls(P11 function) const { return block_->calls[static_cast<std::size_t>(function)]; }

    /// The number of calls of each function, indexed by its position in the function list.
    std::vector<std::uint64_t> all_calls() const;

private:
    TempDir dir_;
    EnvVar block_variable_;
    EnvVar module_variable_;
    WrappedBlock* block_;
};

} // namespace Kes::test

#endif // KES_TESTS_E2E_TOKENS_SOFT_TOKEN_H_
