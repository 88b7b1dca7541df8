#ifndef KES_TESTS_DOUBLES_PKCS11_MODULE_CALL_H_
#define KES_TESTS_DOUBLES_PKCS11_MODULE_CALL_H_

#include <mutex>
#include <new>
#include <string>

#include "control_files.h"
#include "failure.h"
#include "readers.h"

namespace Kes::test {

/// One call at a time. Counts and records the calls, and fails those that a test plans to fail.
class Calls {
public:
    /// The object of the process. It is never destroyed, because OpenSSL calls the module until the very end.
    static Calls& instance();

    /// Carries out a call that needs C_Initialize() before it.
    /// @param body  a function that gets the Readers
    template <typename Body>
    CK_RV run(const char* function, Body body) {
        return run_always(function, [&] {
            require(readers != nullptr, CKR_CRYPTOKI_NOT_INITIALIZED);
            body(*readers);
        });
    }

    template <typename Body>
    CK_RV run_always(const char* function, Body body) {
        const std::lock_guard<std::mutex> one_at_a_time(mutex_);
        const CallNumber number = next(function);
        const CK_RV result = result_of([&] {
            const CK_RV planned = planned_failure(function, number);
            require(planned == CKR_OK, planned);
            body();
        });
        result_of([&] { record_call(function, number, result); });
        return result;
    }

    std::unique_ptr<Readers> readers; ///< null before C_Initialize() and after C_Finalize()

private:
    template <typename Body>
    static CK_RV result_of(Body body) noexcept {
        try {
            body();
            return CKR_OK;
        } catch (const Failure& failure) {
            return failure.code;
        } catch (const std::bad_alloc&) {
            return CKR_HOST_MEMORY;
        } catch (...) {
            return CKR_GENERAL_ERROR;
        }
    }

    CallNumber next(const char* function);

    std::mutex mutex_;
    unsigned long count_ = 0;
    std::map<std::string, unsigned long> counts_;
};

/// Stores a list as PKCS#11 functions do: without a place, only its length.
template <typename Value>
void store_list(const std::vector<Value>& values, Value* place, CK_ULONG* count) {
    require(count != nullptr, CKR_ARGUMENTS_BAD);
    const CK_ULONG room = *count;
    *count = values.size();
    if (place == nullptr) return;
    require(room >= values.size(), CKR_BUFFER_TOO_SMALL);
    std::copy(values.begin(), values.end(), place);
}

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_PKCS11_MODULE_CALL_H_
