#ifndef KES_TESTS_DOUBLES_DLL_CARD_MODULE_H_
#define KES_TESTS_DOUBLES_DLL_CARD_MODULE_H_

#include <string>

#include "card_api.h"

namespace Kes::test {

/// A loaded PKCS#11 module. libp11 and its engine load it separately.
class CardModule {
public:
    CardModule() = default;
    ~CardModule() { unload(); }
    CardModule(const CardModule&) = delete;
    CardModule& operator=(const CardModule&) = delete;

    /// Loads and initialises the module. On failure, puts an entry with the caller's name on the error queue.
    bool load(const char* path, const char* caller);

    /// Finalizes the module for all users in the process, and unloads it. Does nothing if it is not loaded.
    void unload();

    bool is_loaded() const { return api_ != nullptr; }
    const CardApi* operator->() const { return api_; }

private:
    void* library_ = nullptr;
    const CardApi* api_ = nullptr;
};

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_DLL_CARD_MODULE_H_
