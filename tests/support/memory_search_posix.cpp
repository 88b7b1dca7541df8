#include "memory_search.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <stdexcept>
#include <sys/mman.h>
#include <unistd.h>

#include "support.h"

namespace Kes::test {
namespace {

/// Reads memory through /proc/self/mem, because mappings may disappear during the search. The buffer is a
/// mapping of its own, which is not searched.
class MemoryReader {
public:
    MemoryReader()
        : buffer_(::mmap(nullptr, buffer_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)),
          memory_(::open("/proc/self/mem", O_RDONLY | O_CLOEXEC)) {
        if (buffer_ == MAP_FAILED || memory_ < 0)
            throw std::runtime_error("cannot read this process's memory");
    }
    ~MemoryReader() {
        ::munmap(buffer_, buffer_size);
        ::close(memory_);
    }
    MemoryReader(const MemoryReader&) = delete;
    MemoryReader& operator=(const MemoryReader&) = delete;

    std::size_t count_between(std::uintptr_t begin, std::uintptr_t end, const MaskedText& needle) const {
        // The kernel may merge the buffer with its neighbours into one mapping.
        const auto own = reinterpret_cast<std::uintptr_t>(buffer_);
        const std::uintptr_t own_end = own + buffer_size;
        return count_apart(begin, std::min(end, own), needle) +
               count_apart(std::max(begin, own_end), end, needle);
    }

private:
    static constexpr std::size_t buffer_size = std::size_t{1} << 20U;

    std::size_t count_apart(std::uintptr_t begin, std::uintptr_t end, const MaskedText& needle) const {
        std::size_t found = 0;
        const std::size_t length = needle.bytes.size();
        while (begin + length <= end) {
            const ssize_t got = ::pread(memory_, buffer_, std::min<std::size_t>(buffer_size, end - begin),
                                        static_cast<off_t>(begin));
            if (got < static_cast<ssize_t>(length)) break;
            const auto size = static_cast<std::size_t>(got);
            found += count_in({static_cast<const char*>(buffer_), size}, needle);
            begin += size - (length - 1);
        }
        return found;
    }

    void* buffer_;
    int memory_;
};

} // namespace

std::size_t count_in_memory(const MaskedText& needle) {
    // Only the sanitizers' shadow memory is larger: terabytes that contain no text.
    constexpr std::uintptr_t largest = std::uintptr_t{1} << 30U;
    const MemoryReader reader;
    std::size_t found = 0;
    for (const std::string& line : split_lines(read_file("/proc/self/maps"))) {
        std::uintptr_t begin = 0;
        std::uintptr_t end = 0;
        char rights[5] = "";
        if (std::sscanf(line.c_str(), "%lx-%lx %4s", &begin, &end, rights) != 3 || rights[1] != 'w') continue;
        if (end - begin <= largest) found += reader.count_between(begin, end, needle);
    }
    return found;
}

} // namespace Kes::test
