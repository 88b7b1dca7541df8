#include "csp_handles.h"

#include <utility>

namespace Kes::test_card {

ULONG_PTR Handles::add(Object object, Note& note) {
    const ULONG_PTR handle = number_of_call();
    note += std::string(" +") + object.kind + std::to_string(handle);
    objects_.insert_or_assign(handle, std::move(object));
    return handle;
}

Object* Handles::find(char kind, ULONG_PTR handle) {
    const auto found = objects_.find(handle);
    if (found != objects_.end() && found->second.kind == kind) return &found->second;
    const HRESULT error = kind == 'p' ? NTE_BAD_UID : kind == 'k' ? NTE_BAD_KEY : NTE_BAD_HASH;
    ::SetLastError(static_cast<DWORD>(error));
    return nullptr;
}

ULONG_PTR Handles::inner(char kind, ULONG_PTR handle) {
    if (handle == 0) return 0;
    const Object* object = find(kind, handle);
    return object == nullptr ? 0 : object->inner;
}

void Handles::remove(char kind, ULONG_PTR handle, Note& note) {
    note += std::string(" -") + kind + std::to_string(handle);
    objects_.erase(handle);
}

Handles& handles() {
    static Handles all;
    return all;
}

} // namespace Kes::test_card
