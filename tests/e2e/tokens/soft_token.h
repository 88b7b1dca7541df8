#ifndef KES_TESTS_E2E_TOKENS_SOFT_TOKEN_H_
#define KES_TESTS_E2E_TOKENS_SOFT_TOKEN_H_

#include <string>
#include <vector>

#include "support/support.h"
#include "wrapped_module.h"

namespace Kes::test {

constexpr const char* token_pin = "123456"; // of every prepared token but "canary"

std::string softhsm_module();
std::string pkcs11_engine();

/// A copy of one of the prepared token folders, for this test alone; SoftHSM finds it while the object lives.
class SoftToken {
public:
    explicit SoftToken(const std::string& name);

    /// The certificate that was made for the object of that name, DER.
    Bytes certificate(const std::string& object) const;

    /// Takes all tokens away, as if they had never been there.
    void remove() const;

    std::string file(const std::string& name) const { return dir_.file(name); }

private:
    TempDir dir_;
    EnvVar softhsm_conf_;
};

/// Puts the wrapping module before SoftHSM: configure path() as the module.
class WrappedModule {
public:
    WrappedModule();
    ~WrappedModule();
    WrappedModule(const WrappedModule&) = delete;
    WrappedModule& operator=(const WrappedModule&) = delete;

    static std::string path();

    WrappedBlock* operator->() const { return block_; }
    std::uint64_t calls(P11 function) const { return block_->calls[static_cast<std::size_t>(function)]; }

    /// How often each function was called, by its position in the function list.
    std::vector<std::uint64_t> all_calls() const;

private:
    TempDir dir_;
    EnvVar block_variable_;
    EnvVar module_variable_;
    WrappedBlock* block_;
};

} // namespace Kes::test

#endif // KES_TESTS_E2E_TOKENS_SOFT_TOKEN_H_
