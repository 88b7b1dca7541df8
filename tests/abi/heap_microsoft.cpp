// The functions of a C++ library to which the compiler generates calls: memory allocation, and the table
// entry of pure virtual functions.
#include "kernel32.h"
#include "kit.h"

namespace {

/// The client's own heap, so that freeing a block of the library is detected.
win_handle own_heap() {
    static win_handle heap = nullptr; // created here: dynamic initialization needs a C++ library
    if (heap == nullptr) heap = ::HeapCreate(0, 0, 0);
    return heap;
}

} // namespace

void* operator new(size_t size) { return ::HeapAlloc(own_heap(), 0, size); }

void operator delete(void* memory) noexcept {
    if (memory == nullptr) return;
    CHECK(::HeapValidate(own_heap(), 0, memory) != 0);
    CHECK(::HeapFree(own_heap(), 0, memory) != 0);
}

void operator delete(void* memory, size_t) noexcept { ::operator delete(memory); }

extern "C" int _purecall() {
    kit_fail(__FILE__, __LINE__, "a pure virtual function was called");
    return 0;
}
