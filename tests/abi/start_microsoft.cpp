// What the compiler calls of a C++ library that is not there: memory, and the entry of operations without a
// body.
#include "kernel32.h"
#include "kit.h"

namespace {

/// The client's own. A block of the library's is none of it.
win_handle own_heap() {
    static win_handle heap = nullptr; // made here: what begins with the program needs a library
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
    kit_fail(__FILE__, __LINE__, "an operation without a body was called");
    return 0;
}
