#include "support/failing_openssl_allocation.h"

#include <cstdlib>
#include <openssl/crypto.h>
#include <stdexcept>

namespace Kes::test {
namespace {

thread_local std::size_t calls_left = 0; // up to the failing call; 0 if none is to fail
thread_local bool is_reached = false;

bool is_to_fail() {
    if (calls_left == 0 || --calls_left != 0) return false;
    is_reached = true;
    return true;
}

void* allocate(std::size_t size, const char*, int) { return is_to_fail() ? nullptr : std::malloc(size); }

void* reallocate(void* memory, std::size_t size, const char*, int) {
    return is_to_fail() ? nullptr : std::realloc(memory, size);
}

void release(void* memory, const char*, int) { std::free(memory); }

// libcrypto accepts the functions only before its first allocation.
const int is_replaced = ::CRYPTO_set_mem_functions(allocate, reallocate, release);

} // namespace

FailingOpensslAllocation::FailingOpensslAllocation(std::size_t call) {
    if (is_replaced != 1) throw std::logic_error("libcrypto's memory functions were not replaced");
    calls_left = call;
    is_reached = false;
}

FailingOpensslAllocation::~FailingOpensslAllocation() { calls_left = 0; }

bool FailingOpensslAllocation::has_failed() noexcept { return is_reached; }

} // namespace Kes::test
