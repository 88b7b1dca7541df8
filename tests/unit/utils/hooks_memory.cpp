#include "hooks.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace {

thread_local std::size_t allocations = 0;

// The storage is static because the hooks must not allocate memory.
const void* watched = nullptr;
std::size_t watched_count = 0;
bool is_freed = false;
char freed_bytes[256];

void* allocate(std::size_t size) noexcept {
    ++allocations;
    return std::malloc(size == 0 ? 1 : size);
}

void* allocate_or_throw(std::size_t size) {
    void* memory = allocate(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

void release(void* memory) noexcept {
    if (memory != nullptr && memory == watched) {
        std::memcpy(freed_bytes, memory, watched_count);
        is_freed = true;
        watched = nullptr;
    }
    std::free(memory);
}

} // namespace

void* operator new(std::size_t size) { return allocate_or_throw(size); }
void* operator new[](std::size_t size) { return allocate_or_throw(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void operator delete(void* memory) noexcept { release(memory); }
void operator delete[](void* memory) noexcept { release(memory); }
void operator delete(void* memory, std::size_t) noexcept { release(memory); }
void operator delete[](void* memory, std::size_t) noexcept { release(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { release(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { release(memory); }

namespace Kes::test {

std::size_t allocation_count() noexcept { return allocations; }

FreedMemory::FreedMemory(const void* address, std::size_t count) {
    if (count > sizeof freed_bytes) std::abort();
    watched = address;
    watched_count = count;
    is_freed = false;
}

FreedMemory::~FreedMemory() { watched = nullptr; }

std::optional<std::string> FreedMemory::content() const {
    if (!is_freed) return std::nullopt;
    return std::string(freed_bytes, watched_count);
}

} // namespace Kes::test
