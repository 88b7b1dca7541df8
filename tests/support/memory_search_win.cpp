#include "memory_search.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>

#include "utils/windows_api.h"

namespace Kes::test {
namespace {

constexpr std::size_t buffer_size = std::size_t{1} << 20U;

/// Reads memory with ReadProcessMemory(), because pages may disappear during the search. The buffer's pages
/// are not searched.
class MemoryReader {
public:
    MemoryReader() : buffer_(::VirtualAlloc(nullptr, buffer_size, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE)) {
        if (buffer_ == nullptr) throw std::runtime_error("no memory to read into");
    }
    ~MemoryReader() { ::VirtualFree(buffer_, 0, MEM_RELEASE); }
    MemoryReader(const MemoryReader&) = delete;
    MemoryReader& operator=(const MemoryReader&) = delete;

    std::size_t count_between(std::uintptr_t begin, std::uintptr_t end, const MaskedText& needle) const {
        std::size_t found = 0;
        const std::size_t length = needle.bytes.size();
        if (begin == reinterpret_cast<std::uintptr_t>(buffer_)) return 0;
        while (begin + length <= end) {
            SIZE_T size = 0;
            ::ReadProcessMemory(::GetCurrentProcess(), reinterpret_cast<const void*>(begin), buffer_,
                                std::min<std::size_t>(buffer_size, end - begin), &size);
            if (size < length) break;
            found += count_in({static_cast<const char*>(buffer_), size}, needle);
            begin += size - (length - 1);
        }
        return found;
    }

private:
    void* buffer_;
};

bool is_writable(const MEMORY_BASIC_INFORMATION& pages) {
    constexpr DWORD writable =
        PAGE_READWRITE | PAGE_WRITECOPY | PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY;
    return pages.State == MEM_COMMIT && (pages.Protect & writable) != 0 && (pages.Protect & PAGE_GUARD) == 0;
}

} // namespace

std::size_t count_in_memory(const MaskedText& needle) {
    const MemoryReader reader;
    std::size_t found = 0;
    MEMORY_BASIC_INFORMATION pages{};
    for (std::uintptr_t at = 0;
         ::VirtualQuery(reinterpret_cast<const void*>(at), &pages, sizeof pages) == sizeof pages;) {
        const auto begin = reinterpret_cast<std::uintptr_t>(pages.BaseAddress);
        at = begin + pages.RegionSize;
        if (is_writable(pages)) found += reader.count_between(begin, at, needle);
    }
    return found;
}

} // namespace Kes::test
