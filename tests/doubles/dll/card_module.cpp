#include "card_module.h"

#include "call_log.h"
#include "error_texts.h"
#include "utils/windows_api.h"

namespace Kes::test {
namespace {

template <typename Function>
Function find_function(HMODULE library, const char* name) {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(library, name)));
}

} // namespace

bool CardModule::load(const char* path, const char* caller) {
    HMODULE library = ::LoadLibraryA(path);
    if (library == nullptr || ::GetProcAddress(library, "C_GetFunctionList") == nullptr) {
        if (library != nullptr) ::FreeLibrary(library);
        raise_libp11_error(unable_to_load_module, caller);
        return false;
    }
    const auto get_api = find_function<GetCardApi>(library, card_api_entry);
    const unsigned long code = get_api == nullptr ? general_error : get_api()->initialize();
    if (code != card_ok && code != already_initialized) {
        ::FreeLibrary(library);
        raise_module_error(code, caller);
        return false;
    }
    library_ = library;
    api_ = get_api();
    return true;
}

void CardModule::unload() {
    if (!is_loaded()) return;
    api_->finalize(); // fails if another user has finalized the module; libp11 ignores that
    ::FreeLibrary(static_cast<HMODULE>(library_));
    library_ = nullptr;
    api_ = nullptr;
}

} // namespace Kes::test
