#include "support/failing_allocation.h"

#include <cstdlib>
#include <new>

#include "doubles/inside_double.h"

namespace {

thread_local std::size_t calls_left = 0; // up to the failing call; 0 if none is to fail
thread_local bool is_reached = false;

void* allocate(std::size_t size) {
    if (calls_left != 0 && !Kes::test::InsideDouble::is_active() && --calls_left == 0) {
        is_reached = true;
        throw std::bad_alloc();
    }
    void* memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

} // namespace

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

namespace Kes::test {

FailingAllocation::FailingAllocation(std::size_t call) noexcept {
    calls_left = call;
    is_reached = false;
}

FailingAllocation::~FailingAllocation() { calls_left = 0; }

bool FailingAllocation::has_failed() noexcept { return is_reached; }

} // namespace Kes::test
