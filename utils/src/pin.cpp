#include "utils/pin.h"

#include <cstring>
#include <utility>

namespace Kes {

void overwrite(char* characters, std::size_t count) noexcept {
    // The compiler must keep writes through a volatile pointer, even though nothing reads the memory
    // afterwards.
    volatile char* out = characters;
    for (std::size_t i = 0; i < count; ++i)
        out[i] = 'x';
}

Pin::Pin(const char* characters) {
    if (characters == nullptr || *characters == '\0') return; // no memory to overwrite
    const std::size_t size = std::strlen(characters);
    memory = std::make_unique<char[]>(size + 1);
    std::memcpy(memory.get(), characters, size);
    length = size;
}

Pin::Pin(Pin&& other) noexcept : memory(std::move(other.memory)), length(std::exchange(other.length, 0)) {}

Pin& Pin::operator=(Pin&& other) noexcept {
    if (this == &other) return *this;
    clear(); // before the move, which frees the memory
    memory = std::move(other.memory);
    length = std::exchange(other.length, 0);
    return *this;
}

Pin::~Pin() { clear(); }

void Pin::clear() noexcept {
    overwrite(memory.get(), length);
    memory.reset();
    length = 0;
}

} // namespace Kes
