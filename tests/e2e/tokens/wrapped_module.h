#ifndef KES_TESTS_E2E_TOKENS_WRAPPED_MODULE_H_
#define KES_TESTS_E2E_TOKENS_WRAPPED_MODULE_H_

#include <array>
#include <atomic>
#include <cstdint>

/// The data that the wrapping PKCS#11 module shares with a test. The test reads the number of calls of each
/// function and selects behaviour that SoftHSM does not provide. Both map the block from a file whose path is
/// in an environment variable.
namespace Kes::test {

constexpr const char* wrapped_block_variable = "MARVO_TEST_MODULE_BLOCK"; // path of the file
constexpr const char* wrapped_module_variable = "MARVO_TEST_MODULE";      // path of the wrapped module

/// Positions in the PKCS#11 function list of the functions that tests refer to.
enum class P11 : std::size_t {
    initialize = 0,
    finalize = 1,
    get_slot_list = 4,
    get_slot_info = 5,
    get_token_info = 6,
    open_session = 12,
    close_session = 13,
    close_all_sessions = 14,
    login = 18,
    get_attribute_value = 24,
    find_objects_init = 26,
    count = 68
};

struct WrappedBlock {
    std::array<std::atomic<std::uint64_t>, static_cast<std::size_t>(P11::count)> calls;
    std::atomic<std::uint64_t> open_sessions;   ///< in all slots together; set by the module
    std::atomic<std::uint32_t> reverse_slots;   ///< the slot list has the reverse order
    std::atomic<std::uint32_t> no_token;        ///< the readers are empty
    std::atomic<std::uint32_t> removed;         ///< the card was removed: calls that need it fail
    std::atomic<std::uint64_t> set_token_flags; ///< added to each token's flags
    std::atomic<std::uint64_t> clear_token_flags;
    std::atomic<std::uint64_t> no_session;    ///< C_OpenSession() fails with this value if it is not 0
    std::atomic<std::uint64_t> session_limit; ///< C_OpenSession() fails if so many are open; 0: no limit

    /// The call of C_GetAttributeValue() with this number fails. The first call has the number 1.
    std::atomic<std::uint64_t> failing_attribute_read;
};

} // namespace Kes::test

#endif // KES_TESTS_E2E_TOKENS_WRAPPED_MODULE_H_
